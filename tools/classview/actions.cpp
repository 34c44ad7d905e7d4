// Buttons, menus and shortcuts of the main window.
#include "mainwindow.h"
#include "theme.h"

#include <QActionGroup>
#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QMenuBar>
#include <QMessageBox>
#include <QSettings>
#include <QToolBar>
#include <QToolButton>
#include <QUrl>

namespace {

constexpr int lookAgainInterval = 8000; // milliseconds

} // namespace

QAction *MainWindow::makeAction(const QString &icon, const QString &text, const QString &tip,
                                const QKeySequence &keys, std::function<void()> triggered)
{
    auto *const action = new QAction(text, this);
    if (!icon.isEmpty())
        theme::setIcon(action, icon);
    action->setShortcut(keys);
    action->setToolTip(
        keys.isEmpty() ? tip : tip + QStringLiteral(" (%1)").arg(keys.toString(QKeySequence::NativeText)));
    action->setStatusTip({});
    connect(action, &QAction::triggered, this, std::move(triggered));
    addAction(action);
    return action;
}

QAction *MainWindow::makeSwitch(const QString &icon, const QString &text, const QString &tip,
                                const QKeySequence &keys, std::function<void(bool)> toggled)
{
    auto *const action = makeAction(icon, text, tip, keys, [] {});
    action->setCheckable(true);
    connect(action, &QAction::triggered, this, [this, toggled = std::move(toggled)](bool wanted) {
        toggled(wanted);
        updateActions(); // on when the service says so
    });
    return action;
}

void MainWindow::makeActions()
{
    auto &a = m_actions;
    a.open = makeAction("open", tr("Open"), tr("Opens the service: it looks for the camera"), tr("Ctrl+O"),
                        [this] { m_lesson.open(); });
    a.load = makeAction("load", tr("Load"), tr("Opens the service if need be and loads its recognisers"),
                        tr("Ctrl+L"), [this] { m_lesson.load(); });
    a.close =
        makeAction({}, tr("Close the service…"), tr("Ends everything; the service forgets its students"), {},
                   [this] { confirmClose(); });
    a.faces = makeAction("faces", tr("Find faces"), tr("Looks once for all faces in the picture"),
                         tr("Ctrl+F"), [this] { m_lesson.findFaces(); });
    a.enrol = makeAction("enrol", tr("Name faces…"), tr("Asks for the names of unknown faces, one by one"),
                         tr("Ctrl+E"), [this] { enrolUnknown(); });
    a.hands =
        makeSwitch("hand", tr("Hands"), tr("Watches for raised hands"), tr("Ctrl+H"), [this](bool wanted) {
            wanted ? m_lesson.start(Analysis::Hands) : m_lesson.stop(Analysis::Hands);
        });
    a.attention =
        makeSwitch("attention", tr("Attention"), tr("Watches the attention of the class, and smiles"),
                   tr("Ctrl+D"), [this](bool wanted) {
                       wanted ? m_lesson.start(Analysis::Attention) : m_lesson.stop(Analysis::Attention);
                   });
    a.follow = makeSwitch("follow", tr("Follow"), tr("Follows the students who are selected in the list"),
                          tr("Ctrl+T"), [this](bool wanted) { toggleFollowing(wanted); });
    a.game = makeSwitch("game", tr("Game"),
                        tr("Plays the body game with the students who are selected in the list"),
                        tr("Ctrl+G"), [this](bool wanted) {
                            wanted ? m_lesson.start(Analysis::Game, m_students->selectedStudents())
                                   : m_lesson.stop(Analysis::Game);
                        });
    a.attributes =
        makeAction("attributes", tr("Rows, glasses"), tr("Finds out once who sits where and wears glasses"),
                   tr("Ctrl+B"), [this] { m_lesson.findAttributes(); });
    a.record =
        makeSwitch("record", tr("Record"), tr("Records the lesson"), tr("Ctrl+R"),
                   [this](bool wanted) { wanted ? m_lesson.startRecording({}) : m_lesson.stopRecording(); });
    a.recordInto = makeAction("record", tr("Record into a folder…"),
                              tr("Records the lesson into a folder of your choice"), tr("Ctrl+Shift+R"),
                              [this] { chooseRecordFolder(); });
    a.showRecording =
        makeAction("folder", tr("Show the recording"), tr("Opens the folder of the recording"),
                   tr("Ctrl+Shift+O"), [this] {
                       const QFileInfo file(m_lesson.model().lastRecording());
                       QDesktopServices::openUrl(QUrl::fromLocalFile(file.path()));
                       QMessageBox::information(this, tr("Recording"),
                                                tr("The recording is the file\n\n%1").arg(file.filePath()));
                   });
    a.reset = makeAction("reset", tr("Reset…"), tr("Ends everything and forgets all students"),
                         tr("Ctrl+Shift+Backspace"), [this] { confirmReset(); });
    a.importFolder = makeAction("import", tr("Import portraits…"), tr("Enrols a folder of portraits"),
                                tr("Ctrl+I"), [this] { importFolder(); });
    a.refresh = makeAction("refresh", tr("Refresh the students"), tr("Fetches the students' best pictures"),
                           tr("F5"), [this] { m_lesson.refreshStudents(); });
    a.keepLooking = makeSwitch({}, tr("Keep looking for faces"), tr("Looks for all faces every few seconds"),
                               tr("Ctrl+Shift+F"), [this](bool wanted) {
                                   if (wanted)
                                       m_lookAgain.start(lookAgainInterval);
                                   else
                                       m_lookAgain.stop();
                               });

    const auto showIn = [this](GeometryEngine::Mode mode) {
        return [this, mode](bool) { m_display->setMode(mode); };
    };
    a.viewFit = makeSwitch({}, tr("Whole picture"), {}, tr("Ctrl+1"), showIn(GeometryEngine::Fit));
    a.viewFill = makeSwitch({}, tr("Fill the window"), {}, tr("Ctrl+2"), showIn(GeometryEngine::Fill));
    a.viewOneToOne = makeSwitch({}, tr("Pixel by pixel"), {}, tr("Ctrl+3"), showIn(GeometryEngine::OneToOne));
    auto *const modes = new QActionGroup(this);
    for (auto *const mode : {a.viewFit, a.viewFill, a.viewOneToOne})
        modes->addAction(mode);
    a.viewFit->setChecked(true);
    a.viewMirrored = makeSwitch({}, tr("Mirrored"), {}, tr("Ctrl+M"),
                                [this](bool wanted) { m_display->setMirrored(wanted); });
    a.viewTurn = makeAction({}, tr("Turn by 90°"), {}, tr("Ctrl+Shift+T"), [this] {
        m_display->setQuarterTurns(m_display->geometryEngine().quarterTurns() + 1);
    });
    const auto zoom = [this](double factor) {
        return [this, factor] { m_display->zoomAt(QRectF(m_overlay->rect()).center(), factor); };
    };
    a.viewZoomIn = makeAction({}, tr("Larger"), {}, tr("Ctrl++"), zoom(1.25));
    a.viewZoomOut = makeAction({}, tr("Smaller"), {}, tr("Ctrl+-"), zoom(0.8));
    a.viewAll =
        makeAction({}, tr("Whole picture again"), {}, tr("Ctrl+0"), [this] { m_display->resetZoom(); });
}

void MainWindow::makeToolBar()
{
    auto *const bar = addToolBar(tr("Buttons"));
    bar->setMovable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    bar->setIconSize({24, 24});
    bar->setContextMenuPolicy(Qt::PreventContextMenu);
    const auto &a = m_actions;
    bar->addActions({a.open, a.load});
    bar->addSeparator();
    bar->addActions({a.faces, a.enrol});
    bar->addSeparator();
    bar->addActions({a.hands, a.attention, a.follow, a.game, a.attributes});
    bar->addSeparator();
    bar->addActions({a.record, a.reset});
    for (auto *const button : bar->findChildren<QToolButton *>())
        button->setFocusPolicy(Qt::TabFocus);
}

void MainWindow::makeMenus()
{
    const auto &a = m_actions;
    auto *const service = menuBar()->addMenu(tr("&Service"));
    service->addActions({a.open, a.load, a.reset, a.close});
    service->addSeparator();
    service->addAction(tr("Quit"), this, &QWidget::close, QKeySequence::Quit);

    auto *const students = menuBar()->addMenu(tr("S&tudents"));
    students->addActions({a.faces, a.keepLooking, a.enrol, a.importFolder, a.refresh});

    auto *const lesson = menuBar()->addMenu(tr("&Lesson"));
    lesson->addActions({a.hands, a.attention, a.follow, a.game, a.attributes});
    lesson->addSeparator();
    lesson->addActions({a.record, a.recordInto, a.showRecording});

    auto *const view = menuBar()->addMenu(tr("&View"));
    view->addActions({a.viewFit, a.viewFill, a.viewOneToOne});
    view->addSeparator();
    view->addActions({a.viewMirrored, a.viewTurn, a.viewZoomIn, a.viewZoomOut, a.viewAll});
    view->addSeparator();
    const std::pair<QString, theme::Scheme> schemes[] = {{tr("Colours of the desktop"), theme::System},
                                                         {tr("Light"), theme::Light},
                                                         {tr("Dark"), theme::Dark}};
    auto *const choice = new QActionGroup(this);
    for (const auto &[text, scheme] : schemes) {
        auto *const action = view->addAction(text, this, [this, scheme = scheme] {
            QSettings().setValue(theme::settingsKey, int(scheme));
            theme::apply(*qApp, scheme);
            theme::refreshIcons(this);
        });
        action->setCheckable(true);
        action->setChecked(theme::current() == scheme);
        choice->addAction(action);
    }
}

void MainWindow::updateActions()
{
    const auto &a = m_actions;
    auto &link = m_lesson.link();
    const bool isReady = m_lesson.isReady();
    const bool isFree = !link.isBusy();
    const bool anySelected = !m_students->selectedStudents().isEmpty();
    a.open->setEnabled(link.state() == code(ai::State::Closed) && isFree);
    a.close->setEnabled(link.state() >= code(ai::State::Open) && isFree);
    a.load->setEnabled(link.isConnected() && link.state() >= code(ai::State::Closed) && isFree);
    a.faces->setEnabled(isReady && isFree);
    a.enrol->setEnabled(isReady);
    a.importFolder->setEnabled(isReady);
    a.refresh->setEnabled(isReady);
    a.keepLooking->setEnabled(isReady);
    a.attributes->setEnabled(isReady && isFree);
    a.reset->setEnabled(link.state() >= code(ai::State::Open) && isFree);
    const auto setSwitch = [&](QAction *action, bool isOn, bool isPossible) {
        action->setChecked(isOn);
        action->setEnabled(isReady && isFree && (isOn || isPossible));
    };
    setSwitch(a.hands, m_lesson.isRunning(Analysis::Hands), true);
    setSwitch(a.attention, m_lesson.isRunning(Analysis::Attention), true);
    setSwitch(a.follow, m_lesson.isRunning(Analysis::Following), anySelected);
    setSwitch(a.game, m_lesson.isRunning(Analysis::Game), anySelected);
    setSwitch(a.record, m_lesson.isRecording(), true);
    a.recordInto->setEnabled(isReady && !m_lesson.isRecording());
    a.showRecording->setEnabled(!m_lesson.model().lastRecording().isEmpty());
}
