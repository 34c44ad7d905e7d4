#pragma once

#include <QObject>
#include <QVariant>

#include <atomic>

class IService;

/**
 * The one funnel through which events leave for the client: strategies, commands, the video watch and
 * the recorder send here, and the service passes on to every connected client.
 *
 * Threads: sendMessage may be called on any thread, on many at once; it takes no lock. The hand-over to
 * the socket thread is the service's signal.
 */
class MessageSender : public QObject
{
    Q_OBJECT

public:
    static MessageSender *instance();

    /// Sets the service that events go out through; a null pointer changes nothing. Not owned. Until
    /// then events are lost.
    void setService(IService *service);

public slots:
    /// Sends one event. An empty request identifier marks an event of the whole service.
    void sendMessage(unsigned int msg, const QVariant &eventInfo, QString requestID);

private:
    std::atomic<IService *> m_service{nullptr};
};
