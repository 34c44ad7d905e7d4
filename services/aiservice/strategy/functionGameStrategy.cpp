#include "functionGameStrategy.h"

#include "datamanager.h"
#include "protocol.h"
#include "studentbodyposedetecion.h"

#include <QDebug>

FunctionGameStrategy::FunctionGameStrategy(const QString &requestID)
    : BaseStrategy(QStringLiteral("FunctionGameStrategy"), requestID)
{
    m_frameInterval = 5;
}

FunctionGameStrategy::~FunctionGameStrategy() = default;

void FunctionGameStrategy::startGame(const QList<QVariant> &students)
{
    qInfo("[functionGame] start game");
    QVariantList regions;
    for (const QVariant &student : students) {
        const QVariantMap region = AddStudent(student.toMap().value(QStringLiteral("stuID")).toString());
        if (!region.isEmpty())
            regions.append(region);
    }
    m_gameStarted = true;
    emit serviceMessgeSignal(code(ai::Event::GameRegions),
                             QVariantMap{{QStringLiteral("functionGameShowRegion"), regions}}, m_requestID);
}

QMap<QString, QVariant> FunctionGameStrategy::AddStudent(const QString &stuID)
{
    const StudentInfo student = DataManager::instance()->getStudentInfo(stuID);
    if (student.stuID.isEmpty()) {
        qWarning().noquote().nospace() << "[functionGame] add student: " << stuID;
        return {};
    }
    if (student.bodyRect.width == 0 || student.bodyRect.height == 0) {
        qWarning().noquote().nospace() << "[functionGame] add student: " << stuID << " position error";
        return {};
    }
    const auto player = std::make_shared<StudentBodyposeDetecion>(stuID, student.bodyRect);
    m_players.insert(stuID, player);
    return player->info();
}

void FunctionGameStrategy::handleFrame(const cv::Mat &frame)
{
    QVariantList results;
    for (const auto &player : qAsConst(m_players))
        results.append(player->detect(frame));
    emit serviceMessgeSignal(code(ai::Event::Game),
                             QVariantMap{{QStringLiteral("functionGameResult"), results}}, m_requestID);
}
