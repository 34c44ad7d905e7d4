#include "privacy.h"

#include "json.h"

#include <QHash>
#include <QJsonArray>

namespace privacy {

namespace {

enum class Kind
{
    Harmless,
    Name,
    Picture,
    Face,
    Feature
};

const QHash<QString, Kind> &kinds()
{
    static const QHash<QString, Kind> table = [] {
        QHash<QString, Kind> all{
            {"stuID", Kind::Name},     {"oldStuID", Kind::Name},       {"newStuID", Kind::Name},
            {"requestID", Kind::Name}, {"videoLocalPath", Kind::Name}, {"image", Kind::Picture},
            {"faceImg", Kind::Face},   {"showImg", Kind::Face},        {"bestFaceImg", Kind::Face},
            {"bones", Kind::Feature},  {"glass", Kind::Feature},       {"clothColor", Kind::Feature},
        };
        for (const char *key : {"galleries",
                                "studentStates",
                                "handupStudents",
                                "functionGameShowRegion",
                                "functionGameResult",
                                "studentsAttribute",
                                "successList",
                                "bestGalleries",
                                "failedStuList",
                                "gid",
                                "isDetected",
                                "x",
                                "y",
                                "width",
                                "height",
                                "concerntration",
                                "state",
                                "row",
                                "score",
                                "status",
                                "version",
                                "command_code",
                                "videoName",
                                "startRecordDate"})
            all.insert(key, Kind::Harmless);
        return all;
    }();
    return table;
}

bool passes(Kind kind, const Settings::Privacy &allowed)
{
    switch (kind) {
    case Kind::Name:
        return allowed.names;
    case Kind::Picture:
        return allowed.pictures;
    case Kind::Face:
        return allowed.faces;
    case Kind::Feature:
        return allowed.features;
    default:
        return true;
    }
}

/// A value of the same type that says nothing.
QJsonValue withheld(const QVariant &value)
{
    if (value.type() == QVariant::List)
        return QJsonArray();
    if (value.type() == QVariant::Bool)
        return false;
    return QString();
}

QJsonValue outgoingValue(const QVariant &value, const Settings::Privacy &allowed)
{
    if (value.type() == QVariant::Map)
        return outgoing(value.toMap(), allowed);
    if (value.type() != QVariant::List)
        return json::fromVariant(value);
    QJsonArray array;
    for (const QVariant &entry : value.toList())
        array.append(outgoingValue(entry, allowed));
    return array;
}

} // namespace

QJsonObject outgoing(const QVariantMap &map, const Settings::Privacy &allowed)
{
    QJsonObject object;
    for (auto entry = map.begin(); entry != map.end(); ++entry) {
        const auto kind = kinds().constFind(entry.key());
        if (kind == kinds().constEnd())
            continue;
        // What is within passes on its own terms only where the whole may pass.
        object.insert(entry.key(), !passes(*kind, allowed)   ? withheld(entry.value())
                                   : *kind == Kind::Harmless ? outgoingValue(entry.value(), allowed)
                                                             : json::fromVariant(entry.value()));
    }
    return object;
}

QString outgoingRequestID(const QString &id, const QString &ownPrefix, const Settings::Privacy &allowed)
{
    return allowed.names || id == "0" || id.startsWith(ownPrefix) ? id : QString();
}

} // namespace privacy
