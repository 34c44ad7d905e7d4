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

BaseStrategy *BaseStrategy::createNewStrategy(const QString &name, const QString &requestID)
{
    if (name == QLatin1String("GalleryStrategy"))
        return new GalleryStrategy;
    if (name == QLatin1String("GalleryStrategyNew"))
        return new NewGalleryStrategy(requestID);
    if (name == QLatin1String("ConcerntrationStrategy"))
        return new ConcerntrationStrategy(requestID);
    if (name == QLatin1String("CMUHandupStrategy"))
        return new HandupStrategy(requestID);
    if (name == QLatin1String("TrackingStrategy"))
        return new TrackingStrategy(requestID);
    if (name == QLatin1String("HandupPickStrategy"))
        return new handupPickStrategy(requestID);
    if (name == QLatin1String("FunctionGameStrategy"))
        return new FunctionGameStrategy(requestID);
    if (name == QLatin1String("AttributeStrategy"))
        return new StudentAttributeStrategy(requestID);
    if (name == QLatin1String("FaceEmotionStrategy"))
        return new FaceEmotionStrategy(requestID);
    return nullptr;
}
