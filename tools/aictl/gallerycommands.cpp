#include "command.h"
#include "eventdrawing.h"
#include "json.h"
#include "picture.h"
#include "portrait.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>

namespace {

const QCommandLineOption cascadesOption{
    "cascades", "Where OpenCV's Haar cascades lie, for pictures that are not yet 128 by 128.", "dir"};
const QCommandLineOption picturesOption{"pictures", "Print the pictures, too, as JPEG data texts."};

int result(const AiReply &reply)
{
    return reply.ok() ? Success : Failure;
}

/// A student's name as a file name: what a file system may not take becomes "_".
QString fileName(QString name)
{
    name.replace(QRegularExpression("[/\\\\:*?\"<>|\\x00-\\x1f]"), "_");
    return name.startsWith('.') ? '_' + name.mid(1) : name;
}

/// Prints the payload of an event, with or without the pictures in it.
void printInfo(const QVariantMap &info, bool pictures)
{
    Console::printInfo(pictures ? info : picture::withoutPictures(info).toMap());
}

/// The faces of a gallery event as files: faces/NAME.jpg and show/NAME.jpg, where the name is the student or,
/// for one not known or met twice, "face-" and the number. "register" takes the folder faces as it is.
bool saveGallery(const QVariantMap &info, const QDir &folder, QString *error)
{
    QSet<QString> taken;
    for (const auto &value : info["galleries"].toList()) {
        const auto face = value.toMap();
        auto name = fileName(face["stuID"].toString());
        if (name.isEmpty() || taken.contains(name))
            name = QStringLiteral("face-%1").arg(face["gid"].toInt());
        taken.insert(name);
        for (const auto &[key, place] : {std::pair("faceImg", "faces/%1.jpg"), {"showImg", "show/%1.jpg"}}) {
            const auto path = folder.filePath(QString(place).arg(name));
            if (!picture::save(path, picture::jpegOf(face[key].toString()), error))
                return false;
        }
    }
    EventDrawing drawing;
    const auto annotated = drawing.draw({code(ai::Event::Faces), info, {}, {}}, [] { return cv::Mat(); });
    if (annotated.empty()) {
        *error = "the frame in the event does not decode";
        return false;
    }
    return picture::save(folder.filePath("frame.jpg"), picture::jpegOf(info["image"].toString()), error) &&
           picture::save(folder.filePath("annotated.jpg"), annotated, error);
}

int runFetchGallery(Console &console, const Arguments &arguments)
{
    QVariantMap data;
    if (!arguments.positional.isEmpty())
        data["stuID"] = arguments.at(0);
    QVariantMap info;
    if (!console.executeForEvent(ai::Command::FetchFaces, data, ai::Event::Faces, &info))
        return Failure;
    QString error;
    if (arguments.has("save") && !saveGallery(info, QDir(arguments.value("save")), &error)) {
        Console::complain(error);
        return Failure;
    }
    printInfo(info, arguments.has("pictures"));
    return Success;
}

/// One student to enrol: a picture file, and the name, by default that of the file.
struct Source
{
    QString student;
    QString file;
};

/// Folders stand for the pictures in them; FILE=STUDENT gives a file another name than its own.
bool collectSources(const QStringList &arguments, QList<Source> *sources, QString *error)
{
    const QStringList filters{"*.jpg", "*.jpeg", "*.png", "*.bmp"};
    for (const auto &argument : arguments) {
        const auto equals = argument.lastIndexOf('=');
        const QFileInfo entry(equals > 0 && !QFileInfo::exists(argument) ? argument.left(equals) : argument);
        if (entry.isDir()) {
            for (const auto &file : QDir(entry.filePath()).entryInfoList(filters, QDir::Files, QDir::Name))
                sources->append({file.completeBaseName(), file.filePath()});
        } else if (entry.isFile()) {
            const auto named = entry.filePath() != argument;
            sources->append({named ? argument.mid(equals + 1) : entry.completeBaseName(), entry.filePath()});
        } else {
            *error = QStringLiteral("no such file or folder: %1").arg(argument);
            return false;
        }
    }
    if (!sources->isEmpty())
        return true;
    *error = "no pictures there";
    return false;
}

QVariantMap withPlace(QVariantMap entry, const QRect &place)
{
    entry["x"] = place.x();
    entry["y"] = place.y();
    entry["width"] = place.width();
    entry["height"] = place.height();
    return entry;
}

/// The portraits of all sources, as entries of a request. A picture that gives none is told of and left out.
QVariantList makeEntries(const Arguments &arguments, const QStringList &names, bool *complete)
{
    QList<Source> sources;
    QString error;
    *complete = collectSources(names, &sources, &error);
    if (!*complete)
        Console::complain(error);
    PortraitMaker maker(arguments.value("cascades"));
    QVariantList entries;
    for (const auto &source : sources) {
        Portrait portrait;
        if (!maker.make(source.file, &portrait, &error)) {
            Console::complain(error);
            *complete = false;
            continue;
        }
        entries.append(withPlace({{"stuID", source.student}, {"faceImg", picture::toDataText(portrait.jpeg)}},
                                 portrait.place));
    }
    return entries;
}

int runRegister(Console &console, const Arguments &arguments)
{
    bool complete = false;
    const auto entries = makeEntries(arguments, arguments.positional, &complete);
    if (entries.isEmpty())
        return Failure;
    QVariantMap info;
    if (!console.executeForEvent(ai::Command::RegisterStudents, QVariantMap{{"galleries", entries}},
                                 ai::Event::Registered, &info))
        return Failure;
    Console::printInfo(info);

    QSet<QString> enrolled;
    for (const auto &entry : info["successList"].toList())
        enrolled.insert(entry.toMap()["stuID"].toString());
    for (const auto &entry : entries) {
        const auto student = entry.toMap()["stuID"].toString();
        if (enrolled.contains(student))
            continue;
        Console::complain(QStringLiteral("%1 was refused: the student exists, "
                                         "or the face was not taken")
                              .arg(student));
        complete = false;
    }
    return complete ? Success : Failure;
}

int runStudents(Console &console, const Arguments &arguments)
{
    QVariantMap info;
    if (!console.executeForEvent(ai::Command::BestPictures, {}, ai::Event::BestPictures, &info))
        return Failure;
    if (arguments.has("save")) {
        const QDir folder(arguments.value("save"));
        for (const auto &value : info["bestGalleries"].toList()) {
            const auto student = value.toMap();
            const auto path = folder.filePath(fileName(student["stuID"].toString()) + ".jpg");
            QString error;
            if (!picture::save(path, picture::jpegOf(student["bestFaceImg"].toString()), &error)) {
                Console::complain(error);
                return Failure;
            }
        }
    }
    printInfo(info, arguments.has("pictures"));
    return Success;
}

int runRename(Console &console, const Arguments &arguments)
{
    return result(console.execute(ai::Command::RenameStudent,
                                  QVariantMap{{"oldStuID", arguments.at(0)}, {"newStuID", arguments.at(1)}}));
}

int runReplace(Console &console, const Arguments &arguments)
{
    PortraitMaker maker(arguments.value("cascades"));
    Portrait portrait;
    QString error;
    if (!maker.make(arguments.at(1), &portrait, &error)) {
        Console::complain(error);
        return Failure;
    }
    return result(console.execute(
        ai::Command::ReplaceFace,
        withPlace({{"oldStuID", arguments.at(0)}, {"faceImageBase64", picture::toDataText(portrait.jpeg)}},
                  portrait.place)));
}

int runDelete(Console &console, const Arguments &arguments)
{
    return result(console.execute(ai::Command::DeleteStudent, QVariantMap{{"stuID", arguments.at(0)}}));
}

int runExternal(Console &console, const Arguments &arguments)
{
    if (arguments.at(0) == "clear" && arguments.positional.size() == 1)
        return result(console.execute(ai::Command::ClearExternalFaces));
    if (arguments.at(0) != "set" || arguments.positional.size() < 2) {
        Console::complain("set DIR|FILE... or clear");
        return WrongUsage;
    }
    bool complete = false;
    const auto entries = makeEntries(arguments, arguments.positional.mid(1), &complete);
    if (entries.isEmpty())
        return Failure;
    const auto reply = console.execute(ai::Command::SetExternalFaces, QVariantMap{{"galleries", entries}});
    for (const auto &failed : reply.data.toMap()["failedStuList"].toList()) {
        Console::complain(failed.toMap()["stuID"].toString() + " was refused");
        complete = false;
    }
    return reply.ok() && complete ? Success : Failure;
}

} // namespace

std::vector<Command> galleryCommands()
{
    return {
        {"fetch-gallery",
         "[STUDENT] [--save DIR]",
         "Asks for the faces in the picture, or for the face of one student. Needs a camera.",
         0,
         1,
         {{"save",
           "Save the frame (frame.jpg), the frame with the faces drawn and named (annotated.jpg) and the "
           "face crops (faces/, show/), named after the student or face-NUMBER.",
           "dir"},
          picturesOption},
         runFetchGallery},
        {"register",
         "DIR|FILE|FILE=STUDENT...",
         "Enrols students from pictures. The file's name is the student unless another is given. A picture "
         "of 128 by 128 pixels is sent as it is; out of any other the largest face is cut.",
         1,
         -1,
         {cascadesOption},
         runRegister},
        {"students",
         "[--save DIR]",
         "Lists the enrolled students with the score of their best picture.",
         0,
         0,
         {{"save", "Save the best picture of each student as STUDENT.jpg.", "dir"}, picturesOption},
         runStudents},
        {"rename",
         "OLD NEW",
         "Renames a student. A student who already has the new name is replaced.",
         2,
         2,
         {},
         runRename},
        {"replace",
         "STUDENT FILE",
         "Replaces a student's face. When the service refuses the new face, the student is gone.",
         2,
         2,
         {cascadesOption},
         runReplace},
        {"delete", "STUDENT", "Removes a student.", 1, 1, {}, runDelete},
        {"external",
         "set DIR|FILE...|clear",
         "Sets or clears the external faces: people to recognise who are not enrolled.",
         1,
         -1,
         {cascadesOption},
         runExternal},
    };
}
