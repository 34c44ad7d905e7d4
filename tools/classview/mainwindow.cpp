#include "mainwindow.h"

#include "enroldialog.h"
#include "importdialog.h"
#include "picture.h"
#include "question.h"
#include "theme.h"
#include "words.h"

#include <QCloseEvent>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMenu>
#include <QMessageBox>
#include <QScreen>
#include <QSplitter>
#include <QStandardPaths>
#include <QStatusBar>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int tickInterval = 250; // milliseconds
constexpr qint64 problemShownFor = 15000;
/// A picture older than this stands still.
constexpr qint64 livingPicture = 2000;

} // namespace

MainWindow::MainWindow(const QString &socketName, const QString &cameraKey) : m_lesson(socketName)
{
    setWindowTitle(tr("Class viewer"));
    setWindowIcon(QIcon(QStringLiteral(":/icons/aiservice-viewer.svg")));
    makeActions();
    makePanels();
    makeToolBar();
    makeMenus();
    makeStatusBar();
    resize(QSize(1360, 860).boundedTo(QApplication::primaryScreen()->availableSize()));

    connect(&m_lesson, &LessonControl::changed, this, &MainWindow::refresh);
    connect(&m_lesson.link(), &ServiceLink::exchanged, m_log, &LogPanel::append);
    connect(&m_lesson.link(), &ServiceLink::failed, this,
            [this](const QString &title, const QString &advice) {
                m_problem = title + QStringLiteral(": ") + advice;
                m_problemSince.start();
                updateGuide();
            });
    connect(&m_lesson.link(), &ServiceLink::eventReceived, this, [this](const AiEvent &event) {
        if (event.event() == ai::Event::Registered && !m_lesson.link().isBusy())
            m_lesson.refreshStudents();
    });
    connect(&m_tick, &QTimer::timeout, this, &MainWindow::refresh);
    m_tick.start(tickInterval);
    connect(&m_lookAgain, &QTimer::timeout, this, [this] {
        if (m_lesson.isReady() && !m_lesson.link().isBusy() && m_camera->pictureAge() < livingPicture)
            m_lesson.findFaces();
    });
    m_rateClock.start();
    m_camera = std::make_unique<CameraWatch>(
        cameraKey, [this](const VideoFrame &frame) { m_display->showFrame(frame); });
    m_lesson.link().start();
    refresh();
}

MainWindow::~MainWindow()
{
    // Nobody gives frames any more when the widgets go.
    m_camera.reset();
    m_lesson.disconnect(this);
    m_lesson.link().disconnect(this);
}

void MainWindow::makePanels()
{
    m_display = VideoDisplay::create(nullptr);
    m_overlay = new Overlay(m_display, &m_lesson.model(), &m_lesson.clock());
    m_guide = new GuideBar;
    m_legend = new LegendBar;
    m_timeline = new TimelineStrip(&m_lesson.model(), &m_lesson.clock());
    m_students = new StudentPanel(&m_lesson);
    m_log = new LogPanel;
    connect(m_legend, &LegendBar::toggled, m_overlay, &Overlay::setShown);
    connect(m_overlay, &Overlay::studentClicked, this, &MainWindow::showStudentMenu);
    connect(m_overlay, &Overlay::unknownFaceClicked, this, [this](int face) {
        if (m_lesson.isReady())
            enrolFaces({m_lesson.model().faces().value(face)});
    });
    connect(m_students, &StudentPanel::enrolWanted, this, &MainWindow::enrolUnknown);
    connect(m_students, &StudentPanel::importWanted, this, &MainWindow::importFolder);
    connect(m_students, &StudentPanel::replaceWanted, this, &MainWindow::replaceFace);
    connect(m_students, &StudentPanel::menuWanted, this, &MainWindow::showStudentMenu);
    connect(m_students, &StudentPanel::selectionChanged, this, &MainWindow::updateActions);

    auto *const picture = new QWidget;
    auto *const column = new QVBoxLayout(picture);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(m_guide);
    column->addWidget(m_display->widget(), 1);
    column->addWidget(m_legend);
    auto *const left = new QSplitter(Qt::Vertical);
    left->addWidget(picture);
    left->addWidget(m_timeline);
    left->setStretchFactor(0, 1);
    left->setCollapsible(0, false);

    m_tabs = new QTabWidget;
    m_tabs->addTab(m_students, tr("St&udents"));
    m_tabs->addTab(m_log, tr("L&og"));
    m_tabs->setDocumentMode(true);
    auto *const all = new QSplitter(Qt::Horizontal);
    all->addWidget(left);
    all->addWidget(m_tabs);
    all->setStretchFactor(0, 1);
    all->setCollapsible(0, false);
    all->setSizes({1000, 340});
    setCentralWidget(all);
}

void MainWindow::makeStatusBar()
{
    m_serviceStatus = new QLabel;
    m_cameraStatus = new QLabel;
    m_runningStatus = new QLabel;
    m_recordingStatus = new QLabel;
    m_recordingStatus->setTextFormat(Qt::RichText);
    m_recordingStatus->setTextInteractionFlags(Qt::TextBrowserInteraction);
    connect(m_recordingStatus, &QLabel::linkActivated, this, [this] { m_actions.showRecording->trigger(); });
    for (auto *const label : {m_serviceStatus, m_cameraStatus, m_runningStatus}) {
        label->setMargin(4);
        label->setTextFormat(Qt::RichText);
        statusBar()->addWidget(label);
    }
    statusBar()->addPermanentWidget(m_recordingStatus);
}

void MainWindow::startWhenReady(const QStringList &wanted)
{
    m_wanted = wanted;
}

void MainWindow::startWanted()
{
    if (m_wanted.isEmpty() || m_lesson.link().isBusy())
        return;
    if (m_wanted.contains("open") && (m_lesson.link().state() == code(ai::State::Closed) ||
                                      m_lesson.link().state() == code(ai::State::Open))) {
        m_wanted.removeAll("open");
        m_lesson.load();
    } else if (m_lesson.isReady() && m_camera->frames() > 0) {
        const QString next = m_wanted.takeFirst();
        if (next == "faces")
            m_actions.faces->trigger();
        else if (next == "hands")
            m_lesson.start(Analysis::Hands);
        else if (next == "attention")
            m_lesson.start(Analysis::Attention);
        else if (next == "record")
            m_lesson.startRecording({});
    }
}

void MainWindow::refresh()
{
    const qint64 elapsed = m_rateClock.elapsed();
    if (elapsed >= 1000) {
        const std::uint64_t frames = m_camera ? m_camera->frames() : 0;
        m_rate = double(frames - m_framesBefore) * 1000 / double(elapsed);
        m_framesBefore = frames;
        m_rateClock.restart();
    }
    if (!m_camera)
        return;
    startWanted();
    updateActions();
    updateGuide();
    updateStatus();
    updateNotice();
}

void MainWindow::updateNotice()
{
    const qint64 age = m_camera->pictureAge();
    if (age < 0) {
        m_overlay->setNotice(
            m_camera->hasSegment() ? tr("The camera sends no picture yet") : tr("No camera"),
            tr("Start a camera program on this computer, for example\n\ncamerafeed /dev/video0\n\nfor a "
               "camera that is plugged in, or\n\ncamerafeed --demo\n\nfor a class composed of photographs. "
               "The picture appears here by itself. Camera, service and viewer need the same temporary "
               "folder: here it is %1.")
                .arg(QDir::tempPath()));
        return;
    }
    m_overlay->setNotice({}, {});
    m_overlay->setPictureAge(age > livingPicture ? age : 0);
    m_lesson.model().seeVideo(age <= livingPicture, m_lesson.clock().elapsed());
}

QString MainWindow::whatRuns() const
{
    QStringList running;
    if (m_lesson.isRunning(Analysis::Hands))
        running.append(tr("hands"));
    if (m_lesson.isRunning(Analysis::Attention))
        running.append(tr("attention"));
    if (m_lesson.isRunning(Analysis::Following))
        running.append(m_lesson.followed().isEmpty()
                           ? tr("following")
                           : tr("following %1").arg(m_lesson.followed().join(QStringLiteral(", "))));
    if (m_lesson.isRunning(Analysis::Game))
        running.append(tr("game"));
    return running.join(QStringLiteral(", "));
}

void MainWindow::updateStatus()
{
    const auto coloured = [](const QColor &colour, const QString &text) {
        return QStringLiteral("<span style='color:%1'>●</span> %2").arg(colour.name(), text.toHtmlEscaped());
    };
    auto &link = m_lesson.link();
    const QColor serviceColour = link.state() == code(ai::State::Initialised) ? theme::good()
                                 : link.state() < 0                           ? theme::bad()
                                                                              : theme::warning();
    QString service = tr("Service: %1").arg(words::serviceState(link.state()));
    if (!link.currentTitle().isEmpty())
        service += QStringLiteral(" · ") + link.currentTitle() + QStringLiteral(" …");
    m_serviceStatus->setText(coloured(serviceColour, service));

    const qint64 age = m_camera->pictureAge();
    const bool lives = age >= 0 && age <= livingPicture;
    const QSize size = m_display->frame().size();
    m_cameraStatus->setText(coloured(lives ? theme::good() : theme::bad(),
                                     age < 0 ? tr("Camera: none")
                                     : lives ? tr("Camera: %1 × %2, %3 frames/s, %4 ms old")
                                                   .arg(size.width())
                                                   .arg(size.height())
                                                   .arg(m_rate, 0, 'f', 0)
                                                   .arg(age)
                                             : tr("Camera: has stood still for %1").arg(words::age(age))));
    const QString running = whatRuns();
    m_runningStatus->setText(running.isEmpty() ? tr("Nothing runs").toHtmlEscaped()
                                               : coloured(theme::good(), tr("Runs: %1").arg(running)));
    const QString file = m_lesson.model().recordingFile();
    m_recordingStatus->setText(
        !m_lesson.isRecording() ? QString()
        : file.isEmpty()
            ? coloured(theme::bad(), tr("Recording"))
            : coloured(theme::bad(), tr("Recording into")) +
                  QStringLiteral(" <a href='#'>%1</a>").arg(QFileInfo(file).fileName().toHtmlEscaped()));
    m_recordingStatus->setToolTip(file);
}

void MainWindow::updateGuide()
{
    const auto &a = m_actions;
    auto &link = m_lesson.link();
    if (m_problemSince.isValid() && m_problemSince.elapsed() < problemShownFor && !m_problem.isEmpty()) {
        m_guide->show(m_problem, {}, true);
        return;
    }
    m_problem.clear();
    if (!link.isConnected()) {
        m_guide->show(tr("The service is not running, so only the camera is shown. Start AIService on this "
                         "computer; the viewer connects by itself."),
                      {});
    } else if (link.state() == ServiceLink::noAnswer) {
        m_guide->show(tr("The service does not answer. If that lasts, end it and start it anew."), {});
    } else if (link.state() == code(ai::State::Closed)) {
        m_guide->show(tr("Step 1: open the service and load its recognisers. That takes some seconds."),
                      {a.load});
    } else if (link.state() == code(ai::State::Open)) {
        m_guide->show(tr("Step 1: load the recognisers. That takes some seconds."), {a.load});
    } else if (m_lesson.model().students().isEmpty() && m_lesson.model().faces().isEmpty()) {
        m_guide->show(tr("Step 2: find the faces in the picture, or import portraits."),
                      {a.faces, a.importFolder});
    } else if (m_lesson.model().students().isEmpty()) {
        m_guide->show(
            tr("Step 2: click a face in the picture and type the name, or name all of them in turn."),
            {a.enrol, a.faces});
    } else {
        guideThroughLesson();
    }
}

void MainWindow::guideThroughLesson()
{
    const auto &a = m_actions;
    const QString file = QDir::toNativeSeparators(m_lesson.model().lastRecording());
    const bool isRecording = m_lesson.isRecording();
    QStringList texts;
    QList<QAction *> actions;
    if (isRecording)
        texts.append(m_lesson.model().recordingFile().isEmpty()
                         ? tr("The lesson is being recorded.")
                         : tr("The lesson is being recorded into %1.").arg(file));
    else if (!file.isEmpty())
        texts.append(tr("The recording is the file %1.").arg(file));
    if (!m_lesson.isAnythingRunning()) {
        texts.append(tr("Step 3: watch raised hands or the attention of the class."));
        actions = {a.hands, a.attention};
    } else if (!isRecording) {
        texts.append(tr("Click a student in the picture for more. The lesson can be recorded."));
        actions = {a.record};
    }
    if (!file.isEmpty())
        actions.append(a.showRecording);
    m_guide->show(texts.join(' '), actions);
}

void MainWindow::enrolFaces(const QVector<FoundFace> &faces)
{
    if (faces.isEmpty())
        return;
    EnrolDialog dialog(&m_lesson, faces, this);
    dialog.exec();
    if (dialog.enrolled() > 0)
        m_lesson.refreshStudents();
}

void MainWindow::enrolUnknown()
{
    QVector<FoundFace> unknown;
    for (const FoundFace &face : m_lesson.model().faces())
        if (face.student.isEmpty())
            unknown.append(face);
    std::sort(unknown.begin(), unknown.end(), [](const FoundFace &a, const FoundFace &b) {
        return std::pair(a.place.y() / 100, a.place.x()) < std::pair(b.place.y() / 100, b.place.x());
    });
    if (unknown.isEmpty())
        QMessageBox::information(this, tr("Name faces"),
                                 tr("No unknown face was found in the picture. Press “Find faces” first."));
    else
        enrolFaces(unknown);
}

void MainWindow::importFolder()
{
    const QString folder = QFileDialog::getExistingDirectory(
        this, tr("A folder of portraits, each file named after its student"));
    if (folder.isEmpty())
        return;
    const QStringList files = ImportDialog::picturesIn(folder);
    if (files.isEmpty())
        QMessageBox::information(this, tr("Import portraits"),
                                 tr("There are no pictures in %1.").arg(folder));
    else
        ImportDialog(&m_lesson, files, this).exec();
}

void MainWindow::replaceFace(const QString &student)
{
    const QString file = QFileDialog::getOpenFileName(this, tr("The new face of %1").arg(student), {},
                                                      tr("Pictures (*.jpg *.jpeg *.png *.bmp)"));
    if (file.isEmpty())
        return;
    Portrait portrait;
    QString problem;
    PortraitMaker maker;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const bool isMade = maker.make(file, &portrait, &problem);
    QApplication::restoreOverrideCursor();
    if (!isMade) {
        QMessageBox::warning(this, tr("New face"), words::portraitProblem(maker.problem()));
        return;
    }
    if (isConfirmed(this, tr("New face"),
                    tr("Replace the face of %1? The old pictures are forgotten.").arg(student)))
        m_lesson.replaceFace(student, picture::toDataText(portrait.jpeg), portrait.place,
                             [this](const QString &refusal) {
                                 if (!refusal.isEmpty())
                                     QMessageBox::warning(this, tr("New face"), refusal);
                             });
}

void MainWindow::showStudentMenu(const QString &student, const QPoint &position)
{
    QMenu menu(this);
    menu.addSection(student);
    const bool isFollowed = m_lesson.followed().contains(student);
    const bool isEnrolled = m_lesson.model().knows(student) && m_lesson.isReady();
    const auto add = [&](const QString &icon, const QString &text, const std::function<void()> &does) {
        menu.addAction(theme::icon(icon), text, this, does)->setEnabled(isEnrolled);
    };
    add("follow", isFollowed ? tr("Stop following") : tr("Follow"), [=] {
        if (isFollowed)
            m_lesson.stopFollowing(student);
        else
            m_lesson.follow(student);
    });
    add("rename", tr("Rename…"), [=] { m_students->rename(student); });
    add("replace", tr("New face…"), [=] { replaceFace(student); });
    add("delete", tr("Delete…"), [=] { m_students->remove(student); });
    menu.exec(position);
}

void MainWindow::chooseRecordFolder()
{
    const QString folder =
        QFileDialog::getExistingDirectory(this, tr("Where the recording goes"),
                                          QStandardPaths::writableLocation(QStandardPaths::MoviesLocation));
    if (!folder.isEmpty())
        m_lesson.startRecording(folder);
}

void MainWindow::confirmReset()
{
    if (isConfirmed(this, tr("Reset"),
                    tr("End all analyses and forget all students? This cannot be taken back, and nothing is "
                       "stored until the service is closed and opened again.")))
        m_lesson.reset();
}

void MainWindow::confirmClose()
{
    if (isConfirmed(this, tr("Close the service"),
                    tr("End all analyses and the recording, and forget all students? This cannot be taken "
                       "back.")))
        m_lesson.close();
}

void MainWindow::toggleFollowing(bool wanted)
{
    if (!wanted)
        m_lesson.stop(Analysis::Following);
    else
        m_lesson.start(Analysis::Following, m_students->selectedStudents());
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    QStringList left;
    if (const QString running = whatRuns(); !running.isEmpty())
        left.append(tr("This still runs: %1. It ends when the viewer is closed, also for other programs.")
                        .arg(running));
    if (m_lesson.isRecording())
        left.append(tr("The recording goes on when the viewer is closed."));
    const bool mayClose = !m_lesson.link().isConnected() || left.isEmpty() ||
                          isConfirmed(this, windowTitle(), left.join(' ') + ' ' + tr("Close all the same?"));
    event->setAccepted(mayClose);
}
