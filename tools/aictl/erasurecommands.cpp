// The erasure of students from the service and from the files that it has left.

#include "command.h"
#include "countersreader.h"
#include "leftfiles.h"
#include "picture.h"
#include "storefile.h"
#include "tracesearch.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QSet>
#include <QStorageInfo>
#include <QTextStream>

#include <algorithm>
#include <string_view>

namespace {

void tell(const QString &text)
{
    Console::print(text + '\n');
}

QString counted(int count, const char *one, const char *many)
{
    return QStringLiteral("%1 %2").arg(count).arg(QLatin1String(count == 1 ? one : many));
}

/// A folder that holds much besides what the service writes.
bool isShared(const QDir &folder)
{
    return folder.isRoot() || folder == QDir::home();
}

/// As the service itself tells in its page of counters; 0 when none counts there.
qint64 countingProcess(const QDir &temporary)
{
    QString problem;
    const auto page = counters::read(temporary, problem);
    return page && counters::writerOf(*page) == counters::Writer::Counts ? page->process : 0;
}

/// One call of the command: what it found out first, and what it could not remove.
class Erasure
{
public:
    Erasure(Console &console, const Arguments &arguments)
        : m_console(console), m_arguments(arguments), m_all(arguments.has("all"))
    {
    }

    int run();

private:
    bool findPlaces();
    bool readStore();
    bool askService();
    void collectFiles();
    bool isAgreed() const;

    void eraseFromService();
    void forgetExternals();
    void eraseFromStore();
    void removeFiles(const QFileInfoList &files);

    void verify();
    void verifyFile(const QString &path);
    void tellWhatIsOutOfReach() const;

    bool removesFiles() const
    {
        return m_arguments.has("logs") || m_arguments.has("dumps") || m_arguments.has("recordings");
    }
    QString storePath() const { return m_working.filePath("ai.data"); }
    void addPicture(const QString &student, const QString &dataText);
    /// Tells of something that should be gone and is not.
    void remains(const QString &text);

    Console &m_console;
    const Arguments &m_arguments;
    const bool m_all;

    QDir m_temporary;
    QDir m_working;
    qint64 m_process = 0;   ///< the service's; 0 when none runs, or when its number is not told
    bool m_isReady = false; ///< the service is initialised: it may know students
    QSet<QString> m_open;   ///< files that the service has open

    QStringList m_students;
    QSet<QString> m_known; ///< by the running service
    QList<StoreFile::Row> m_rows;
    QSet<QString> m_stored; ///< names in the store
    TraceSearch m_search;

    QFileInfoList m_logs;
    QFileInfoList m_dumps;
    QFileInfoList m_recordings;
    QStringList m_namedIn; ///< open files that hold a name
    int m_searched = 0;
    bool m_isClean = true;
};

void Erasure::remains(const QString &text)
{
    Console::complain(text);
    m_isClean = false;
}

bool Erasure::findPlaces()
{
    const bool connected = m_console.tryToConnect();
    const QString socket = m_console.socketName();
    m_temporary = QDir::isAbsolutePath(socket) ? QFileInfo(socket).dir() : QDir::temp();
    m_process = connected ? m_console.serviceProcessId() : 0;
    if (connected && m_process == 0)
        m_process = countingProcess(m_temporary);

    const QString process = QStringLiteral("/proc/%1").arg(m_process);
    const QString itsFolder = m_process > 0 ? QFileInfo(process + "/cwd").symLinkTarget() : QString();
    if (m_arguments.has("store"))
        m_working = QDir(m_arguments.value("store"));
    else if (!itsFolder.isEmpty())
        m_working = QDir(itsFolder);
    else if (connected) {
        Console::complain("the service's working folder is not told here; name it with --store DIR");
        return false;
    }
    const auto logs = left_files::logs(m_temporary);
    // A run that stored nothing may have left logs; that it was this folder must be said.
    const bool isNamed = m_arguments.has("store") && !logs.isEmpty();
    if (!connected && !QFile::exists(storePath()) && !isNamed) {
        Console::complain(
            QStringLiteral("no service answers in %1, and there is no ai.data in %2: set TMPDIR "
                           "as it is for the service, or name the folder of ai.data with --store")
                .arg(m_temporary.absolutePath(), m_working.absolutePath()));
        return false;
    }

    const auto handles = QDir(process + "/fd").entryInfoList(QDir::Files | QDir::System);
    for (const QFileInfo &handle : handles) {
        const QFileInfo file(handle.symLinkTarget());
        if (file.isFile())
            m_open.insert(file.canonicalFilePath());
    }
    // Where handles are not told, the newest log is the open one.
    if (connected && m_open.isEmpty() && !logs.isEmpty())
        m_open.insert(logs.last().canonicalFilePath());

    const QString who = !connected      ? QStringLiteral("none answers in ") + m_temporary.absolutePath()
                        : m_process > 0 ? QStringLiteral("process %1").arg(m_process)
                                        : QStringLiteral("answers");
    tell(QStringLiteral("service: %1").arg(who));
    tell(QStringLiteral("store:   %1%2")
             .arg(m_working.absolutePath(),
                  QFile::exists(storePath()) ? "/ai.data" : ", where no ai.data is"));
    tell(QStringLiteral("logs:    %1").arg(m_temporary.absoluteFilePath(left_files::logFolder)));
    return true;
}

void Erasure::addPicture(const QString &student, const QString &dataText)
{
    const QByteArray jpeg = picture::jpegOf(dataText);
    if (jpeg.isEmpty())
        return;
    if (!m_search.addPicture(jpeg))
        remains(QStringLiteral("a picture of %1 is too plain to be looked for").arg(student));
}

bool Erasure::readStore()
{
    if (!QFile::exists(storePath()))
        return true;
    StoreFile store(storePath());
    if (!store.read(&m_rows)) {
        Console::complain(QStringLiteral("%1: %2").arg(storePath(), store.errorString()));
        return false;
    }
    for (const auto &row : qAsConst(m_rows))
        m_stored.insert(row.student);
    return true;
}

bool Erasure::askService()
{
    QVariantMap best;
    if (m_console.isConnected()) {
        const auto status =
            m_console.exchange(AiClient::Info, code(ai::Question::Status), {}, m_console.newRequestID());
        if (!status.ok()) {
            Console::complain("the service does not tell its state: " + status.errorText());
            return false;
        }
        m_isReady = status.data.toMap()["status"].toInt() == code(ai::State::Initialised);
    }
    if (m_isReady &&
        !m_console.executeForEvent(ai::Command::BestPictures, {}, ai::Event::BestPictures, &best))
        return false;
    const auto students = best["bestGalleries"].toList();
    for (const auto &student : students)
        m_known.insert(student.toMap()["stuID"].toString());

    m_students = m_all ? QStringList((m_known | m_stored).values()) : m_arguments.positional;
    m_students.removeDuplicates();
    m_students.sort();
    for (const auto &student : students) {
        const auto name = student.toMap()["stuID"].toString();
        if (m_students.contains(name))
            addPicture(name, student.toMap()["bestFaceImg"].toString());
    }
    for (const auto &row : qAsConst(m_rows)) {
        for (const auto &dataText : row.pictures) {
            if (m_students.contains(row.student))
                addPicture(row.student, dataText);
        }
    }
    for (const auto &student : qAsConst(m_students)) {
        if (m_known.contains(student) || m_stored.contains(student))
            continue;
        const auto text =
            QStringLiteral("nobody is called %1, neither in the service nor in its store").arg(student);
        // Who has been erased before may still be named in files.
        if (removesFiles())
            tell(text + ": only the name is looked for");
        else
            remains(text);
    }
    return true;
}

void Erasure::collectFiles()
{
    const auto closed = [this](QFileInfoList files) {
        files.erase(std::remove_if(
                        files.begin(), files.end(),
                        [this](const QFileInfo &file) { return m_open.contains(file.canonicalFilePath()); }),
                    files.end());
        return files;
    };
    m_logs = closed(left_files::logs(m_temporary));
    m_dumps = closed(left_files::dumps(m_temporary));
    QStringList folders;
    if (m_arguments.has("recorded-in")) {
        folders = m_arguments.parser.values("recorded-in");
    } else {
        for (const QStorageInfo &volume : QStorageInfo::mountedVolumes())
            folders.append(QDir(volume.rootPath()).filePath("Mirovane/Video"));
        folders.removeDuplicates();
    }
    for (const QString &folder : qAsConst(folders))
        m_recordings += closed(left_files::recordings(QDir(folder)));
}

bool Erasure::isAgreed() const
{
    if (m_arguments.has("yes"))
        return true;
    QStringList what{m_students.isEmpty() ? QStringLiteral("nobody") : m_students.join(", ")};
    if (m_arguments.has("logs"))
        what.append(counted(m_logs.size(), "log", "logs"));
    if (m_arguments.has("dumps"))
        what.append(counted(m_dumps.size(), "crash dump", "crash dumps"));
    if (m_arguments.has("recordings"))
        what.append(counted(m_recordings.size(), "recording", "recordings") + " with everybody in them");
    Console::print(
        QStringLiteral("Erase %1? This cannot be taken back. Type yes or no:\n").arg(what.join("; ")));
    QTextStream input(stdin);
    const QString answer = input.readLine().trimmed();
    return answer == "yes" || answer == "y";
}

void Erasure::eraseFromService()
{
    for (const auto &student : qAsConst(m_students)) {
        if (!m_known.contains(student))
            continue;
        const auto reply = m_console.exchange(AiClient::Execute, code(ai::Command::DeleteStudent),
                                              QVariantMap{{"stuID", student}}, m_console.newRequestID());
        if (reply.ok())
            tell(QStringLiteral("removed: %1, from the running service").arg(student));
        else
            remains(QStringLiteral("the service keeps %1: %2").arg(student, reply.errorText()));
    }
    forgetExternals();
}

/// External faces cannot be removed one by one: all go, and those of others are set again.
void Erasure::forgetExternals()
{
    QVariantList others;
    bool isExternal = m_all;
    for (const auto &row : qAsConst(m_rows)) {
        if (!row.isExternal)
            continue;
        if (m_students.contains(row.student))
            isExternal = true;
        else
            others.append(QVariantMap{{"stuID", row.student}, {"faceImg", row.pictures.value(0)}});
    }
    if (!m_isReady || !isExternal)
        return;
    const auto ask = [this](ai::Command command, const QVariant &data) {
        auto reply = m_console.exchange(AiClient::Execute, code(command), data, m_console.newRequestID());
        if (!reply.ok())
            remains(QStringLiteral("external faces: %1").arg(reply.errorText()));
        return reply;
    };
    if (!ask(ai::Command::ClearExternalFaces, {}).ok())
        return;
    tell(m_all ? QStringLiteral("removed: all external faces, from the running service")
               : QStringLiteral("removed: the external face, from the running service"));
    if (others.isEmpty())
        return;
    const auto reply = ask(ai::Command::SetExternalFaces, QVariantMap{{"galleries", others}});
    for (const auto &lost : reply.data.toMap()["failedStuList"].toList())
        remains("the external face of another one was refused when it was set again: " +
                lost.toMap()["stuID"].toString());
}

/// The rows that the service did not remove, because it does not run or never brought them back.
void Erasure::eraseFromStore()
{
    if (!QFile::exists(storePath()))
        return;
    QList<StoreFile::Row> rows;
    StoreFile store(storePath());
    bool done = store.read(&rows);
    QSet<QString> left;
    for (const auto &row : qAsConst(rows)) {
        if (m_all || m_students.contains(row.student))
            left.insert(row.student);
    }
    for (const QString &student : qAsConst(left))
        done = done && store.erase(student);
    // What an earlier service deleted may stand in free pages.
    if (!m_console.isConnected())
        done = done && store.compact();
    if (!done)
        remains(QStringLiteral("%1: %2").arg(storePath(), store.errorString()));
    for (const QString &student : m_students) {
        if (done && m_stored.contains(student))
            tell(QStringLiteral("removed: %1, from ai.data").arg(student));
    }
}

void Erasure::removeFiles(const QFileInfoList &files)
{
    for (const QFileInfo &file : files) {
        QFile remover(file.filePath());
        if (remover.remove())
            tell("removed: " + file.filePath());
        else
            remains(QStringLiteral("cannot remove %1: %2").arg(file.filePath(), remover.errorString()));
    }
}

void Erasure::verify()
{
    QSet<QString> paths = m_open;
    const auto addAll = [&](const QString &folder, QDirIterator::IteratorFlag depth) {
        QDirIterator files(folder, QDir::Files | QDir::Hidden | QDir::NoSymLinks, depth);
        while (files.hasNext())
            paths.insert(QFileInfo(files.next()).canonicalFilePath());
    };
    addAll(m_temporary.filePath("Orelia"), QDirIterator::Subdirectories);
    addAll(m_working.path(),
           isShared(m_working) ? QDirIterator::NoIteratorFlags : QDirIterator::Subdirectories);
    QStringList sorted = paths.values();
    sorted.sort();
    for (const QString &path : qAsConst(sorted))
        verifyFile(path);

    tell(QStringLiteral("searched: %1 for %2 and %3")
             .arg(counted(m_searched, "file", "files"),
                  counted(m_search.pictureCount(), "picture", "pictures"),
                  counted(m_students.size(), "name", "names")));
    for (const QString &path : qAsConst(m_namedIn))
        tell(QStringLiteral("still named in: %1, which the service has open").arg(path));
    if (m_isClean)
        tell(m_namedIn.isEmpty() ? "nothing of it is left there" : "nothing else of it is left there");
}

void Erasure::verifyFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        // A journal may have gone meanwhile. What the service reads only is not its own.
        if (file.exists() && !m_open.contains(path))
            remains(QStringLiteral("cannot search %1: %2").arg(path, file.errorString()));
        return;
    }
    const qint64 size = file.size();
    const uchar *const bytes = size > 0 ? file.map(0, size) : nullptr;
    if (size > 0 && !bytes) {
        remains(QStringLiteral("cannot search %1: %2").arg(path, file.errorString()));
        return;
    }
    const std::string_view content(reinterpret_cast<const char *>(bytes), std::size_t(size));
    ++m_searched;
    if (m_search.findsPicture(content))
        remains(QStringLiteral("a piece of a picture is still in %1").arg(path));

    const bool isStore = QFileInfo(path).fileName().startsWith("ai.data");
    // The working folder may hold lists of a class that are not the service's.
    if (!isStore && !m_open.contains(path) && !path.startsWith(m_temporary.canonicalPath() + "/Orelia/"))
        return;
    QList<QByteArray> others;
    for (const QString &other : qAsConst(m_stored)) {
        if (!m_students.contains(other))
            others.append(other.toUtf8());
    }
    for (const auto &student : qAsConst(m_students)) {
        const QByteArray text = student.toUtf8();
        if (!(isStore ? TraceSearch::findsRow(content, text, others) : TraceSearch::findsName(content, text)))
            continue;
        if (!isStore && m_open.contains(path))
            m_namedIn.append(path);
        else
            remains(QStringLiteral("%1 is still named in %2").arg(student, path));
    }
    m_namedIn.removeDuplicates();
}

void Erasure::tellWhatIsOutOfReach() const
{
    tell("out of reach:");
    if (!m_arguments.has("logs") && !m_logs.isEmpty())
        tell(QStringLiteral("  %1, which --logs removes")
                 .arg(counted(m_logs.size(), "older log", "older logs")));
    if (!m_arguments.has("dumps") && !m_dumps.isEmpty())
        tell(QStringLiteral("  %1 with pieces of the service's memory, which --dumps removes")
                 .arg(counted(m_dumps.size(), "crash dump", "crash dumps")));
    if (!m_arguments.has("recordings") && !m_recordings.isEmpty())
        tell(QStringLiteral("  %1 in which he may be seen, which --recordings removes")
                 .arg(counted(m_recordings.size(), "recording", "recordings")));
    tell("  recordings in other folders (--recorded-in DIR), and copies of recordings");
    if (isShared(m_working))
        tell("  what lies in folders of " + m_working.absolutePath());
    tell("  pictures that clients have saved elsewhere, and what clients remember of events");
    tell("  backups and snapshots of the disk, and the disk's own blocks of removed files");
    if (!m_console.isConnected())
        tell("  a service that runs with another TMPDIR: it knows him until it ends");
    if (!m_namedIn.isEmpty())
        tell("  the name in the open log: erase once more with --logs after midnight or a restart");
}

int Erasure::run()
{
    if (!findPlaces() || !readStore() || !askService())
        return Failure;
    collectFiles();
    if (!isAgreed()) {
        Console::complain("nothing was erased");
        return Failure;
    }
    eraseFromService();
    eraseFromStore();
    if (m_arguments.has("logs"))
        removeFiles(m_logs);
    if (m_arguments.has("dumps"))
        removeFiles(m_dumps);
    if (m_arguments.has("recordings"))
        removeFiles(m_recordings);
    verify();
    tellWhatIsOutOfReach();
    return m_isClean ? Success : Failure;
}

int runErase(Console &console, const Arguments &arguments)
{
    if (arguments.has("all") != arguments.positional.isEmpty()) {
        Console::complain("STUDENT... or --all");
        return WrongUsage;
    }
    if (arguments.positional.contains(QString())) {
        Console::complain("a student's name is not empty");
        return WrongUsage;
    }
    if (console.inSession() && !arguments.has("yes")) {
        Console::complain("in a session standard input carries the commands: give --yes");
        return WrongUsage;
    }
    return Erasure(console, arguments).run();
}

} // namespace

std::vector<Command> erasureCommands()
{
    return {
        {"erase",
         "STUDENT...|--all [--logs] [--dumps] [--recordings]",
         "Erases students from the service and from what it left on the disk, and searches its files for "
         "what is left of them. Tells what was removed and what is out of reach. Works without a running "
         "service, too, on its ai.data. Success means that no piece of the pictures and no name was found, "
         "except the names in a log that is open.",
         0,
         -1,
         {{"all", "Erase everybody, external faces included."},
          {"logs", "Remove the service's logs but the open one."},
          {"dumps", "Remove its crash dumps."},
          {"recordings", "Remove the recordings, those of everybody, from Mirovane/Video of each disk."},
          {"recorded-in", "Look for recordings in this folder instead; can be given again.", "dir"},
          {"store",
           "The folder of ai.data (default: the working folder of the running service, or else this one).",
           "dir"},
          {"yes", "Don't ask before."}},
         runErase}};
}
