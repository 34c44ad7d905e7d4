#include "messageSender.h"

#include "iservice.h"

#include <QDebug>

MessageSender *MessageSender::instance()
{
    static MessageSender sender;
    return &sender;
}

void MessageSender::setService(IService *service)
{
    if (!service)
        return;
    m_service = service;
    qDebug("[messageSender] setservice ");
}

void MessageSender::sendMessage(unsigned int msg, const QVariant &eventInfo, QString requestID)
{
    qInfo().nospace() << "[messageSender] msg: " << msg;
    IService *service = m_service;
    if (!service)
        return;
    if (requestID.isEmpty())
        service->sendServiceMessage(msg, eventInfo);
    else
        service->sendServiceMessage(msg, eventInfo, requestID);
}
