#include "strategyfactory.h"

#include "basestrategy.h"
#include "concerntrationstrategy.h"
#include "faceemotionstrategy.h"
#include "functionGameStrategy.h"
#include "gallerystrategy.h"
#include "handupstrategy.h"
#include "handupstrategypick.h"
#include "newgallerystrategy.h"
#include "studentattributestrategy.h"
#include "trackingstrategy.h"

#include <type_traits>

namespace {

struct Entry
{
    const char *name;
    BaseStrategy *(*make)(const QString &requestID);
};

template <class Strategy>
BaseStrategy *make(const QString &requestID)
{
    if constexpr (std::is_constructible_v<Strategy, const QString &>)
        return new Strategy(requestID);
    else
        return new Strategy;
}

constexpr Entry factory[] = {
    {"GalleryStrategy", make<GalleryStrategy>},
    {"GalleryStrategyNew", make<NewGalleryStrategy>},
    {"ConcerntrationStrategy", make<ConcerntrationStrategy>},
    {"CMUHandupStrategy", make<HandupStrategy>},
    {"TrackingStrategy", make<TrackingStrategy>},
    {"HandupPickStrategy", make<handupPickStrategy>},
    {"FunctionGameStrategy", make<FunctionGameStrategy>},
    {"AttributeStrategy", make<StudentAttributeStrategy>},
    {"FaceEmotionStrategy", make<FaceEmotionStrategy>},
};

} // namespace

BaseStrategy *BaseStrategy::createNewStrategy(const QString &name, const QString &requestID)
{
    for (const Entry &entry : factory) {
        if (name != QLatin1String(entry.name))
            continue;
        BaseStrategy *strategy = entry.make(requestID);
        strategy->countIn(counters::find(counters::page().analyses, entry.name));
        return strategy;
    }
    return nullptr;
}

QStringList strategyNames()
{
    QStringList names;
    for (const Entry &entry : factory)
        names.append(QLatin1String(entry.name));
    return names;
}
