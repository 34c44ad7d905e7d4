#pragma once

#include <QAction>
#include <QFrame>
#include <QLabel>
#include <QPushButton>

/// Says in one sentence what can be done next, with the buttons for it.
class GuideBar : public QFrame
{
    Q_OBJECT

public:
    GuideBar();

    /// The buttons stand for the actions, in their order.
    void show(const QString &text, const QList<QAction *> &actions, bool isProblem = false);

private:
    QLabel *m_text;
    QList<QPushButton *> m_buttons;
    QList<QAction *> m_actions;
};
