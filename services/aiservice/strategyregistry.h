#pragma once

#include <QMap>
#include <QMutex>
#include <QObject>

#include <functional>
#include <memory>

class BaseStrategy;
class QImage;

/**
 * The analyses that run, at most one of each registered name.
 *
 * Threads: any. Commands come one at a time, frames on the thread of the video, and a strategy that ends by
 * itself leaves on its own thread. One lock guards the map; nothing else is locked under it, and strategies
 * are let go of after it.
 *
 * Ownership: shared. Who got a strategy keeps it alive; the last one to let go releases it, see
 * BaseStrategy::release.
 */
class StrategyRegistry : public QObject
{
    Q_OBJECT

public:
    using Strategy = std::shared_ptr<BaseStrategy>;

    /// What came of a start.
    enum class Started
    {
        yes,
        refused,    ///< the strategy runs already
        notProvided ///< the factory doesn't know the name
    };

    using QObject::QObject;

    /// The registered strategy of a name, or null. Leaves a null entry behind for a name that isn't there.
    Strategy find(const QString &name);
    /// The strategy that is registered under a name, or a new one in place of none and of one that has ended.
    /// Null, with a line in the log, for a name that the factory doesn't know.
    Strategy provide(const QString &name, const QString &requestID);
    /// Provides the strategy of a name and starts it with `start`, which is called once more, for a new
    /// strategy, when the one that was provided ended by itself before it could be started.
    Started start(const QString &name, const QString &requestID,
                  const std::function<bool(BaseStrategy &)> &start);
    /// Takes a strategy out, unless another object stands under its name by now.
    void remove(const QString &name, const BaseStrategy *strategy);
    /// Takes all strategies out. They end on their own threads, without `finished`. Null entries stay.
    void reset();

public slots:
    /// Queues a frame for all strategies that keep up. Called on the thread of the video.
    /// One connection for all of them: each with one of its own would take down a slot, on its own thread,
    /// that the thread of the video may be about to call.
    void offerFrame(const QImage &image);

private:
    QMutex m_strategyLock;                ///< guards m_strategies
    QMap<QString, Strategy> m_strategies; ///< by registered name; may hold nulls
};
