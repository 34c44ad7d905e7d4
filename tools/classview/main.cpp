#include "mainwindow.h"
#include "screenshot.h"
#include "theme.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QLibraryInfo>
#include <QMap>
#include <QSettings>
#include <QTranslator>

#include <cstdio>
#include <cstdlib>

namespace {

enum ExitCode
{
    Done = 0,
    Failed = 1,
    WrongUse = 2
};

struct Options
{
    QString socket;
    QString camera;
    QStringList start;
    QSize size;
    theme::Scheme scheme = theme::System;
    QString language;
    Screenshot::Wish screenshot;
};

int fail(const QString &why)
{
    std::fprintf(stderr, "classview: %s\n", qPrintable(why));
    return WrongUse;
}

/// The wish "names=3,hands=1".
bool readWish(const QString &text, Screenshot::Wish *wish)
{
    const QMap<QString, int *> counts{
        {"names", &wish->names}, {"hands", &wish->hands}, {"attention", &wish->attention}};
    for (const auto &part : text.split(',', Qt::SkipEmptyParts)) {
        bool isNumber = false;
        const int count = part.section('=', 1).toInt(&isNumber);
        const QString kind = part.section('=', 0, 0);
        if (!isNumber || !counts.contains(kind))
            return false;
        *counts[kind] = count;
    }
    return true;
}

/// Empty when all is well, else what is wrong.
QString readOptions(const QStringList &arguments, Options *options, QString *help)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Shows the camera's picture with what the service tells of it, and lets one work "
        "with the service.\nExit code 0 at the end, 1 when a screenshot failed, 2 for wrong "
        "use.");
    parser.addHelpOption();
    parser.addOptions(
        {{"socket", "Socket of the service; else the bridge of the room is used, or the service.", "NAME"},
         {"camera", "Name of the camera's segment.", "NAME", "Camera"},
         {"start",
          "Start these as soon as the service allows it, separated by commas: open (with loading the "
          "recognisers), faces, hands, attention, record.",
          "LIST"},
         {"screenshot", "Write a picture of the window (PNG) and end.", "FILE"},
         {"after", "Take it after so many seconds.", "SECONDS", "3"},
         {"show", "Take it when so much is to be seen: names=N,hands=N,attention=N.", "WISH"},
         {"at-most", "Give up waiting for that after so many seconds, with code 1.", "SECONDS", "300"},
         {"size", "Size of the window.", "WIDTHxHEIGHT"},
         {"theme", "Colours: system, light or dark.", "NAME"},
         {"language", "Language, for example en or zh; that of the system else.", "CODE"}});
    const bool isParsed = parser.parse(arguments);
    *help = parser.helpText();
    if (!isParsed || !parser.positionalArguments().isEmpty())
        return isParsed ? "unknown argument " + parser.positionalArguments().first() : parser.errorText();
    if (parser.isSet("help"))
        return "help";

    options->socket = parser.value("socket");
    options->camera = parser.value("camera");
    options->start = parser.value("start").split(',', Qt::SkipEmptyParts);
    for (const auto &word : options->start)
        if (!QStringList({"open", "faces", "hands", "attention", "record"}).contains(word))
            return "--start does not know " + word;
    options->screenshot.file = parser.value("screenshot");
    bool isAfter = false, isAtMost = false;
    options->screenshot.after = parser.value("after").toDouble(&isAfter);
    options->screenshot.atMost = parser.value("at-most").toDouble(&isAtMost);
    if (!isAfter || !isAtMost || !readWish(parser.value("show"), &options->screenshot))
        return "--after and --at-most take seconds, --show takes names=N,hands=N,attention=N";
    const QStringList sides = parser.value("size").split('x');
    if (parser.isSet("size")) {
        options->size = QSize(sides.value(0).toInt(), sides.value(1).toInt());
        if (options->size.width() < 200 || options->size.height() < 200)
            return "--size takes WIDTHxHEIGHT of at least 200 each";
    }
    const QStringList schemes{"system", "light", "dark"};
    options->scheme = theme::Scheme(schemes.indexOf(parser.value("theme")));
    if (parser.isSet("theme") && int(options->scheme) < 0)
        return "--theme takes system, light or dark";
    if (!parser.isSet("theme"))
        options->scheme = theme::Scheme(qBound(0, QSettings().value(theme::settingsKey).toInt(), 2));
    options->language = parser.value("language");
    return {};
}

void installTranslators(QApplication &application, const QString &language)
{
    const QLocale locale = language.isEmpty() ? QLocale::system() : QLocale(language);
    QLocale::setDefault(locale);
    auto *const own = new QTranslator(&application);
    if (own->load(locale, "classview", "_", ":/translations"))
        QApplication::installTranslator(own);
    auto *const qt = new QTranslator(&application);
    if (qt->load(locale, "qtbase", "_", QLibraryInfo::location(QLibraryInfo::TranslationsPath)))
        QApplication::installTranslator(qt);
}

} // namespace

int main(int argc, char **argv)
{
    // Without a display Qt ends the process itself: with a signal, and without a word that helps.
#ifdef Q_OS_LINUX
    if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY") && !std::getenv("QT_QPA_PLATFORM")) {
        std::fputs(
            "classview: there is no display; start it on a desktop, or through xvfb-run for a screenshot\n",
            stderr);
        return WrongUse;
    }
#endif
    QApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    QApplication::setApplicationName("aiservice-viewer");
    QApplication::setDesktopFileName("aiservice-viewer");

    Options options;
    QString help;
    const QString problem = readOptions(QApplication::arguments(), &options, &help);
    if (problem == "help") {
        std::fputs(qPrintable(help), stdout);
        return Done;
    }
    if (!problem.isEmpty())
        return fail(problem);
    installTranslators(application, options.language);
    theme::apply(application, options.scheme);

    MainWindow window(options.socket, options.camera);
    if (options.size.isValid())
        window.resize(options.size);
    window.startWhenReady(options.start);
    window.show();
    if (!options.screenshot.file.isEmpty())
        new Screenshot(&window, options.screenshot);
    return QApplication::exec();
}
