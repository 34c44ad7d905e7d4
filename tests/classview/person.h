#pragma once

#include "eventually.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTest>
#include <QTimer>

#include <cstdio>
#include <functional>
#include <memory>

/// What somebody with a mouse and a keyboard does with a window.
namespace person {

/// The button with this text in a part of the window, once it can be pressed.
template <class Button>
Button *findButton(QWidget *where, const QString &text)
{
    std::printf("looking for the button %s\n", qPrintable(text)); // where it was when CTest ended it
    std::fflush(stdout);
    Button *found = nullptr;
    EXPECT_TRUE(eventually([&] {
        for (auto *const each : where->findChildren<Button *>())
            if (each->text() == text && each->isEnabled() && each->isVisible())
                found = each;
        return found != nullptr;
    }));
    return found;
}

template <class Button>
void press(QWidget *where, const QString &text)
{
    QTest::mouseClick(findButton<Button>(where, text), Qt::LeftButton);
}

/// Tells whether what was to be done has been done.
using Done = std::shared_ptr<bool>;

/// Does something as soon as a dialog of this type is open.
template <class Dialog>
Done whenOpen(std::function<void(Dialog *)> act, Done done = std::make_shared<bool>(false))
{
    QTimer::singleShot(50, qApp, [act, done] {
        auto *const dialog = qobject_cast<Dialog *>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isVisible()) {
            whenOpen<Dialog>(act, done);
            return;
        }
        act(dialog);
        *done = true;
    });
    return done;
}

/// Waits until it has been done and no dialog is left: a shortcut presses its button after a moment only.
inline void await(const Done &done)
{
    EXPECT_TRUE(eventually([&] { return *done && !QApplication::activeModalWidget(); }));
}

inline Done answer(QMessageBox::StandardButton choice)
{
    return whenOpen<QMessageBox>(
        [choice](QMessageBox *box) { QTest::mouseClick(box->button(choice), Qt::LeftButton); });
}

} // namespace person
