#include "iservice.h"

#include "imagewritter.h"

#include <QDebug>

namespace {

constexpr int segmentBlocks = 3;
constexpr unsigned int largestFrame = 8294400; // bytes of a picture of 1920 by 1080 in RGBA

} // namespace

IService::IService(QString name, bool withShareMemory)
    : serviceName(std::move(name)), useShareMemory(withShareMemory)
{
    if (withShareMemory)
        imageWritter = new ImageWritter(serviceName, segmentBlocks, largestFrame, nullptr);
}

IService::~IService()
{
    delete imageWritter;
}

bool IService::recover()
{
    qWarning() << "use default recover function";
    return true;
}

bool IService::disconnectReset()
{
    qWarning() << "use default disconnectReset function";
    return true;
}

QVariantMap IService::makeResponse(ai::Error error, const QVariant &data, const QString &detail)
{
    return {{QStringLiteral("rsp_error"), code(error)},
            {QStringLiteral("rsp_error_detail"), detail},
            {QStringLiteral("rsp_data"), data}};
}

QVariantMap IService::makeResponse(ai::Error error, const QString &detail)
{
    return makeResponse(error, QVariant(), detail);
}

void IService::sendServiceMessage(unsigned int msg, const QVariant &eventInfo, QString requestID)
{
    emit serviceMessgeSignal(msg, eventInfo, "execute", std::move(requestID));
}

void IService::sendServiceMessage(unsigned int msg, const QVariant &eventInfo)
{
    emit serviceMessgeSignal(msg, eventInfo, "service", "0");
}

void IService::sendImageBlock(ImageBlock ib)
{
    if (imageWritter)
        imageWritter->writeImageBlock(ib);
}
