#pragma once

#include "mainwindow.h"

#include <QElapsedTimer>
#include <QTimer>

/**
 * Takes a picture of the window and ends the program with code 0: after a time, and not before so much is to
 * be seen as is asked for. When that does not come the program ends with code 1 and the picture as it is.
 *
 * What is drawn where stands in the PNG file's text "marks", as JSON, so that a program can check it.
 */
class Screenshot : public QObject
{
    Q_OBJECT

public:
    struct Wish
    {
        QString file;
        double after = 0;    ///< seconds
        double atMost = 300; ///< seconds
        int names = 0;       ///< named faces that have to be seen
        int hands = 0;       ///< raised hands
        int attention = 0;   ///< students whose attention is told
    };

    Screenshot(MainWindow *window, const Wish &wish);

private:
    void look();
    bool isSeen() const;
    bool save() const;

    MainWindow *const m_window;
    const Wish m_wish;
    QElapsedTimer m_clock;
    QTimer m_timer;
};
