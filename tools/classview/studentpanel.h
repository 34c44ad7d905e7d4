#pragma once

#include "lessoncontrol.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QStackedLayout>
#include <QTimer>
#include <QWidget>

/// The enrolled students with their best pictures, how good those are, and when each was last seen; and what
/// can be done with them.
class StudentPanel : public QWidget
{
    Q_OBJECT

public:
    explicit StudentPanel(LessonControl *lesson);

    QStringList selectedStudents() const;

public slots:
    void rename(const QString &student);
    void remove(const QString &student);

signals:
    void enrolWanted();
    void importWanted();
    void replaceWanted(const QString &student);
    void menuWanted(const QString &student, const QPoint &globalPosition);
    void selectionChanged();

private:
    void refresh();
    void refreshTexts();
    void updateButtons();
    void tell(const QString &problem);

    LessonControl *const m_lesson;
    QListWidget *m_list;
    QLabel *m_heading;
    QLabel *m_empty;
    QStackedLayout *m_pages; ///< list or m_empty
    QPushButton *m_enrol;
    QPushButton *m_import;
    QPushButton *m_rename;
    QPushButton *m_replace;
    QPushButton *m_delete;
    QTimer m_seconds;
};
