#include "eventtext.h"

#include "json.h"
#include "picture.h"

namespace {

QString nameOf(const QVariantMap &entry)
{
    const auto name = entry.value("stuID").toString();
    return name.isEmpty() ? QStringLiteral("(unknown)") : name;
}

QString placeOf(const QVariantMap &entry)
{
    return QStringLiteral("at %1,%2 %3x%4")
        .arg(entry.value("x").toInt())
        .arg(entry.value("y").toInt())
        .arg(entry.value("width").toInt())
        .arg(entry.value("height").toInt());
}

/// The entries of a list, each as one text, or a word for an empty list.
template <class Describe>
QString each(const QVariant &list, const QString &separator, const QString &none, Describe describe)
{
    QStringList texts;
    for (const auto &entry : list.toList())
        texts.append(describe(entry.toMap()));
    return texts.isEmpty() ? none : texts.join(separator);
}

QString tell(const AiEvent &event)
{
    const auto &info = event.info;
    const auto nobody = QStringLiteral("nobody");
    const auto nameAndPlace = [](const QVariantMap &entry) { return nameOf(entry) + ' ' + placeOf(entry); };
    switch (event.event()) {
    case ai::Event::Faces:
        return "faces: " + each(info["galleries"], "; ", "none", [](const QVariantMap &face) {
                   return QStringLiteral("#%1 ").arg(face["gid"].toInt()) + nameOf(face) +
                          (face["isDetected"].toBool() ? " enrolled " : " ") + placeOf(face);
               });
    case ai::Event::Attention:
        return QStringLiteral("attention %1: ").arg(info["concerntration"].toDouble(), 0, 'f', 4) +
               each(info["studentStates"], "; ", nobody, [](const QVariantMap &student) {
                   return nameOf(student) + QStringLiteral(" state %1 ").arg(student["state"].toInt()) +
                          placeOf(student);
               });
    case ai::Event::Hands:
        return "hands up: " + each(info["handupStudents"], "; ", nobody, nameAndPlace);
    case ai::Event::Followed:
        return "following " + nameAndPlace(info);
    case ai::Event::GameRegions:
        return "game regions: " + each(info["functionGameShowRegion"], "; ", "none", nameAndPlace);
    case ai::Event::Game:
        return "game: " + each(info["functionGameResult"], "; ", nobody, [](const QVariantMap &player) {
                   return nameOf(player) + QStringLiteral(" %1 points").arg(player["bones"].toList().size());
               });
    case ai::Event::Attributes:
        return "attributes: " + each(info["studentsAttribute"], "; ", nobody, [](const QVariantMap &student) {
                   return nameOf(student) + QStringLiteral(" row %1").arg(student["row"].toInt()) +
                          (student["glass"].toBool() ? ", glasses" : ", no glasses") + ", clothes " +
                          student["clothColor"].toString();
               });
    case ai::Event::Registered:
        return "registered: " + each(info["successList"], ", ", nobody, nameOf);
    case ai::Event::Smile:
        return "smile: " + nameAndPlace(info);
    case ai::Event::Recording:
        return "recording to " + info["videoLocalPath"].toString() + " since " +
               info["startRecordDate"].toString();
    case ai::Event::BestPictures:
        return "students: " + each(info["bestGalleries"], ", ", nobody, [](const QVariantMap &student) {
                   return nameOf(student) +
                          QStringLiteral(" score %1").arg(student["score"].toDouble(), 0, 'f', 1);
               });
    case ai::Event::Video:
        return info["status"].toInt() ? "video is back" : "video has stopped";
    default:
        return json::line(json::fromVariant(picture::withoutPictures(info)).toObject());
    }
}

} // namespace

QString visible(const QString &text)
{
    QString result;
    for (const QChar c : text) {
        const bool turnsText =
            (c >= QChar(0x202a) && c <= QChar(0x202e)) || (c >= QChar(0x2066) && c <= QChar(0x2069));
        if (turnsText || c.category() == QChar::Other_Control || c.category() == QChar::Separator_Line ||
            c.category() == QChar::Separator_Paragraph)
            result += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QChar('0'));
        else
            result += c;
    }
    return result;
}

QString eventText(const AiEvent &event)
{
    return QString::number(event.code) + ' ' + visible(tell(event));
}

QJsonObject eventObject(const AiEvent &event, bool pictures)
{
    const QVariant info = pictures ? QVariant(event.info) : picture::withoutPictures(event.info);
    return {{"msg", int(event.code)},
            {"event_type", event.type},
            {"event_req_id", event.requestID},
            {"event_info", json::fromVariant(info)}};
}
