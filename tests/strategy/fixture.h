#pragma once

#include "basestrategy.h"
#include "eventcatcher.h"
#include "students.h"

#include <gtest/gtest.h>

/// Strategies that get a frame on the test's thread, with nobody enrolled before.
class StrategyTest : public ::testing::Test
{
protected:
    StrategyTest() { DataManager::instance()->clear(); }
    ~StrategyTest() override
    {
        for (BaseStrategy *strategy : strategies)
            BaseStrategy::release(strategy);
    }

    /// Notes the events of the strategy, and releases it at the end.
    template <class Strategy>
    Strategy *listen(Strategy *strategy)
    {
        strategies.push_back(strategy);
        QObject::connect(
            strategy, &BaseStrategy::serviceMessgeSignal, strategy,
            [this](unsigned int code, const QVariant &info, const QString &requestID) {
                events.push_back({code, info.toMap(), QString(), requestID, {}});
            },
            Qt::DirectConnection);
        return strategy;
    }
    /// Puts one more face into the frame, for the detector to find.
    void show(const cv::Rect &face, int brightness)
    {
        frame(face).setTo(cv::Scalar::all(brightness));
        shown.push_back(face);
        recognisers.faces->finds(shown);
    }

    ModelManagerTestAccess::Recognisers recognisers;
    cv::Mat frame = cv::Mat(1080, 1920, CV_8UC3, cv::Scalar::all(10));
    std::vector<cv::Rect> shown;
    std::vector<BaseStrategy *> strategies;
    std::vector<EventCatcher::Event> events;
};

inline cv::Rect rectOf(const QVariantMap &map)
{
    return {map["x"].toInt(), map["y"].toInt(), map["width"].toInt(), map["height"].toInt()};
}
