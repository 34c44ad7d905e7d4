#include "guidebar.h"

#include "theme.h"

#include <QHBoxLayout>

namespace {

constexpr int mostButtons = 3;

} // namespace

GuideBar::GuideBar() : m_text(new QLabel)
{
    auto *const layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 8);
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextBrowserInteraction);
    layout->addWidget(m_text, 1);
    for (int i = 0; i < mostButtons; ++i) {
        auto *const button = new QPushButton;
        button->hide();
        layout->addWidget(button);
        m_buttons.append(button);
        connect(button, &QPushButton::clicked, this, [this, i] { m_actions[i]->trigger(); });
    }
    setAutoFillBackground(true);
}

void GuideBar::show(const QString &text, const QList<QAction *> &actions, bool isProblem)
{
    QPalette colours = palette();
    colours.setColor(QPalette::Window, QApplication::palette().color(QPalette::Base));
    setPalette(colours);
    QPalette textColours = m_text->palette();
    textColours.setColor(QPalette::WindowText,
                         isProblem ? theme::bad() : QApplication::palette().color(QPalette::WindowText));
    m_text->setPalette(textColours);
    if (m_text->text() != text)
        m_text->setText(text);
    m_actions = actions;
    for (int i = 0; i < mostButtons; ++i) {
        auto *const button = m_buttons[i];
        button->setVisible(i < actions.size());
        if (i >= actions.size())
            continue;
        button->setText(actions[i]->text());
        button->setIcon(actions[i]->icon());
        button->setEnabled(actions[i]->isEnabled());
    }
}
