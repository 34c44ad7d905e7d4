#pragma once

#include "lessoncontrol.h"
#include "portrait.h"

#include <QDialog>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>
#include <QThread>

/// Cuts portraits out of picture files on a thread of its own.
class PortraitWorker : public QObject
{
    Q_OBJECT

public slots:
    void make(const QString &file);

signals:
    /// A problem is told instead of a portrait.
    void made(const QString &file, const QByteArray &jpeg, const QRect &place, const QString &problem);

private:
    PortraitMaker m_maker;
};

/// Enrols portraits, one after another, each under the name of its file, and lists what was refused and why.
class ImportDialog : public QDialog
{
    Q_OBJECT

public:
    ImportDialog(LessonControl *lesson, const QStringList &files, QWidget *parent);
    ~ImportDialog() override;

    /// The pictures of a folder, sorted by name.
    static QStringList picturesIn(const QString &folder);

    int enrolled() const { return m_enrolled; }
    /// What became of a file; empty while that is not known.
    QString result(int file) const;

signals:
    void nextWanted(const QString &file);
    void finished();

private:
    void next();
    void takePortrait(const QString &file, const QByteArray &jpeg, const QRect &place,
                      const QString &problem);
    void tell(const QString &problem);

    LessonControl *const m_lesson;
    const QStringList m_files;
    int m_current = -1;
    int m_enrolled = 0;
    QThread m_thread;
    QProgressBar *m_progress;
    QTableWidget *m_table;
    QLabel *m_summary;
    QPushButton *m_close;
};
