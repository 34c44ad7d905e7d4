#pragma once

#include "lessoncontrol.h"

#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

/// Asks for the names of faces, one after another, and enrols each: Enter goes on to the next one.
class EnrolDialog : public QDialog
{
    Q_OBJECT

public:
    EnrolDialog(LessonControl *lesson, const QVector<FoundFace> &faces, QWidget *parent);

    /// How many were enrolled.
    int enrolled() const { return m_enrolled; }

private:
    void showFace();
    /// For the time of a request nothing can be done but to leave.
    void setWaiting(bool isWaiting);
    void enrol();
    void next();

    LessonControl *const m_lesson;
    const QVector<FoundFace> m_faces;
    int m_current = 0;
    int m_enrolled = 0;
    QLabel *m_picture;
    QLabel *m_count;
    QLineEdit *m_name;
    QLabel *m_problem;
    QPushButton *m_enrol;
    QPushButton *m_skip;
};
