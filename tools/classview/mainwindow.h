#pragma once

#include "camerawatch.h"
#include "guidebar.h"
#include "legendbar.h"
#include "lessoncontrol.h"
#include "logpanel.h"
#include "overlay.h"
#include "studentpanel.h"
#include "timelinestrip.h"
#include "videodisplay.h"

#include <QAction>
#include <QLabel>
#include <QMainWindow>
#include <QTabWidget>

/// The viewer's window: picture, students, buttons, the last minutes, log and status.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// @param socketName "AI" or a full path
    /// @param cameraKey  name of the camera's segment
    MainWindow(const QString &socketName, const QString &cameraKey);
    ~MainWindow() override;

    LessonControl &lesson() { return m_lesson; }
    Overlay &overlay() { return *m_overlay; }
    VideoDisplay &display() { return *m_display; }
    CameraWatch &camera() { return *m_camera; }

    /// Names of things to start as soon as the service allows it: faces, hands, attention, record.
    void startWhenReady(const QStringList &wanted);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    struct Actions
    {
        QAction *open, *load, *close, *faces, *enrol, *hands, *attention, *follow, *game, *attributes,
            *record, *reset;
        QAction *recordInto, *showRecording, *importFolder, *refresh, *keepLooking;
        QAction *viewFit, *viewFill, *viewOneToOne, *viewMirrored, *viewTurn, *viewZoomIn, *viewZoomOut,
            *viewAll;
    };

    void makeActions();
    void makeMenus();
    void makeToolBar();
    void makePanels();
    void makeStatusBar();
    QAction *makeAction(const QString &icon, const QString &text, const QString &tip,
                        const QKeySequence &keys, std::function<void()> triggered);
    QAction *makeSwitch(const QString &icon, const QString &text, const QString &tip,
                        const QKeySequence &keys, std::function<void(bool)> toggled);

    void refresh();
    void updateActions();
    void updateGuide();
    void guideThroughLesson();
    void updateStatus();
    void updateNotice();
    void startWanted();

    void enrolFaces(const QVector<FoundFace> &faces);
    void enrolUnknown();
    void importFolder();
    void replaceFace(const QString &student);
    void showStudentMenu(const QString &student, const QPoint &position);
    void chooseRecordFolder();
    void confirmReset();
    void confirmClose();
    void toggleFollowing(bool wanted);
    QString whatRuns() const;

    LessonControl m_lesson;
    VideoDisplay *m_display;
    Overlay *m_overlay;
    std::unique_ptr<CameraWatch> m_camera;
    Actions m_actions;
    GuideBar *m_guide;
    LegendBar *m_legend;
    StudentPanel *m_students;
    TimelineStrip *m_timeline;
    LogPanel *m_log;
    QTabWidget *m_tabs;
    QLabel *m_serviceStatus;
    QLabel *m_cameraStatus;
    QLabel *m_runningStatus;
    QLabel *m_recordingStatus;
    QTimer m_tick;
    QTimer m_lookAgain;
    QString m_problem; ///< the last failure in words, shown for a while
    QElapsedTimer m_problemSince;
    QStringList m_wanted;
    std::uint64_t m_framesBefore = 0;
    QElapsedTimer m_rateClock;
    double m_rate = 0;
};
