#include "codes.h"

#include <QSet>

namespace codes {

namespace {

/// Where a topic says it shorter than the protocol does.
QString wordOf(const ai::CommandRow &row)
{
    switch (row.command) {
    case ai::Command::RegisterStudents:
        return QStringLiteral("register");
    case ai::Command::RenameStudent:
        return QStringLiteral("rename");
    case ai::Command::DeleteStudent:
        return QStringLiteral("delete");
    case ai::Command::BestPictures:
        return QStringLiteral("students");
    case ai::Command::StartFollowing:
        return QStringLiteral("follow");
    default:
        return row.name;
    }
}

} // namespace

QString eventWord(uint code)
{
    if (ai::Event{code} == ai::Event::BestPictures)
        return QStringLiteral("students");
    const ai::EventRow *row = ai::find(ai::Event{code});
    return row ? QString(row->name) : QString::number(code);
}

const QMap<QString, ai::Command> &commandWords()
{
    static const QMap<QString, ai::Command> words = [] {
        // Recognisers and external faces are the room's own business.
        const QSet<uint> kept{code(ai::Command::Initialise), code(ai::Command::SetExternalFaces),
                              code(ai::Command::ClearExternalFaces)};
        QMap<QString, ai::Command> all;
        for (const ai::CommandRow &row : ai::commands) {
            if (!kept.contains(code(row.command)))
                all.insert(wordOf(row), row.command);
        }
        return all;
    }();
    return words;
}

const QList<Analysis> &analyses()
{
    static const QList<Analysis> all{
        {"hands",
         ai::Command::StartHands,
         ai::Command::StopHands,
         ai::Event::Hands,
         {"ssd", "faceMtcnn", "faceid", "handup"}},
        {"attention",
         ai::Command::StartAttention,
         ai::Command::StopAttention,
         ai::Event::Attention,
         {"ssd", "faceMtcnn", "faceid", "bodypose"}},
    };
    return all;
}

const QStringList &recognisers()
{
    static const QStringList keys = [] {
        QStringList names;
        for (const ai::Key &key : ai::joined(ai::recogniserKeys, ai::poseNetworkKeys))
            names.append(key.name);
        return names;
    }();
    return keys;
}

} // namespace codes
