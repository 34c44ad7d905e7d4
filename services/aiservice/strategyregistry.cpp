#include "strategyregistry.h"

#include "basestrategy.h"

#include <QDebug>

#include <utility>
#include <vector>

StrategyRegistry::Strategy StrategyRegistry::find(const QString &name)
{
    QMutexLocker locker(&m_strategyLock);
    return m_strategies[name];
}

StrategyRegistry::Strategy StrategyRegistry::provide(const QString &name, const QString &requestID)
{
    Strategy former = find(name);
    // One that has ended by itself is on its way out.
    if (former && !former->hasEnded()) {
        qInfo().noquote().nospace() << "addNewStrategy already exist: " << name;
        return former;
    }
    Strategy strategy(BaseStrategy::createNewStrategy(name, requestID), [](BaseStrategy *object) {
        if (object)
            BaseStrategy::release(object);
    });
    if (!strategy) {
        qWarning().noquote().nospace() << "createNewStrategy failed: " << name << " reqID: " << requestID;
        return nullptr;
    }
    connect(
        strategy.get(), &BaseStrategy::finished, this,
        [this, name, object = strategy.get()] { remove(name, object); }, Qt::DirectConnection);

    QMutexLocker locker(&m_strategyLock);
    former = std::exchange(m_strategies[name], strategy);
    return strategy;
}

StrategyRegistry::Started StrategyRegistry::start(const QString &name, const QString &requestID,
                                                  const std::function<bool(BaseStrategy &)> &start)
{
    while (const Strategy strategy = provide(name, requestID)) {
        if (start(*strategy))
            return Started::yes;
        if (!strategy->hasEnded())
            return Started::refused;
    }
    return Started::notProvided;
}

void StrategyRegistry::remove(const QString &name, const BaseStrategy *strategy)
{
    Strategy removed; // let go after the lock
    QMutexLocker locker(&m_strategyLock);
    const auto entry = m_strategies.find(name);
    if (entry == m_strategies.end() || (entry.value() && entry.value().get() != strategy)) {
        qWarning().noquote().nospace() << "remove strategy " << name << " failed";
        return;
    }
    removed = entry.value();
    m_strategies.erase(entry);
    qInfo().noquote().nospace() << "remove strategy " << name << " success";
}

void StrategyRegistry::reset()
{
    QMap<QString, Strategy> removed; // let go after the lock
    QMutexLocker locker(&m_strategyLock);
    for (auto entry = m_strategies.begin(); entry != m_strategies.end();) {
        if (!entry.value()) {
            ++entry;
            continue;
        }
        removed.insert(entry.key(), entry.value());
        entry = m_strategies.erase(entry);
    }
}

void StrategyRegistry::offerFrame(const QImage &image)
{
    std::vector<Strategy> strategies; // let go after the lock
    {
        QMutexLocker locker(&m_strategyLock);
        strategies.assign(m_strategies.cbegin(), m_strategies.cend());
    }
    for (const Strategy &strategy : strategies) {
        if (strategy)
            strategy->offerFrame(image);
    }
}
