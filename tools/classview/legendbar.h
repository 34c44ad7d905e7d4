#pragma once

#include "classmodel.h"

#include <QToolButton>
#include <QWidget>

/// What the marks in the picture mean; each kind can be switched off here. Without words where they don't
/// fit.
class LegendBar : public QWidget
{
    Q_OBJECT

public:
    LegendBar();

    QSize minimumSizeHint() const override;

signals:
    void toggled(MarkKind kind, bool shown);

protected:
    void changeEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void paintIcons();

    QToolButton *m_buttons[markKinds];
    int m_fullWidth = 0; ///< with all words
};
