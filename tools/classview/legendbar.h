#pragma once

#include "classmodel.h"

#include <QToolButton>
#include <QWidget>

/// What the marks in the picture mean; each kind can be switched off here.
class LegendBar : public QWidget
{
    Q_OBJECT

public:
    LegendBar();

signals:
    void toggled(MarkKind kind, bool shown);

protected:
    void changeEvent(QEvent *event) override;

private:
    void paintIcons();

    QToolButton *m_buttons[markKinds];
};
