#pragma once

#include "basestrategy.h"

#include <QMap>
#include <QVariantList>

#include <memory>

class StudentBodyposeDetecion;

/**
 * Feeds the body game of the client: a region around each player, told once as event 1015, and in every
 * fifth frame the key points of the biggest person in each region, as event 1016. See BaseStrategy for
 * threads and life.
 */
class FunctionGameStrategy : public BaseStrategy
{
    Q_OBJECT

public:
    explicit FunctionGameStrategy(const QString &requestID);
    ~FunctionGameStrategy() override;

    /// Starts the game with the students of the list, each a map with "stuID". Call it once, on a
    /// request thread, before start().
    void startGame(const QList<QVariant> &students);
    /// Whether startGame has been called.
    bool isGameStarted() const { return m_gameStarted; }

    /// Adds a player. His region, or an empty map for a student who is unknown or was never seen.
    QMap<QString, QVariant> AddStudent(const QString &stuID);

    void handleFrame(const cv::Mat &frame) override;

private:
    bool m_gameStarted = false;
    QMap<QString, std::shared_ptr<StudentBodyposeDetecion>> m_players;
};
