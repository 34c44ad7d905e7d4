#pragma once

#include "keeper.h"
#include "servicelink.h"

#include <QHash>
#include <QLocalServer>

#include <optional>

/**
 * The bridge's own socket, with the service's frames: requests are passed on, events go to everybody. Who
 * looks, and leaves, ends nothing. It listens while there is a service, and ends its connections with it.
 *
 * What the configuration keeps running is neither started twice nor stopped through here: such a request is
 * answered with success by the bridge itself.
 *
 * Threads: one. A looker that doesn't read is let go of when too much waits for it.
 */
class Lookers : public QObject
{
    Q_OBJECT

public:
    Lookers(ServiceLink &service, Keeper &keeper, QObject *parent = nullptr);

    int count() const { return m_lookers.size(); }

private:
    struct Looker
    {
        QLocalSocket *socket;
        std::optional<qint32> length; ///< of the frame that has arrived in part
    };

    void listen();
    void close();
    void accept();
    void read(quint64 serial);
    void pass(quint64 serial, const QVariantMap &request);
    void sendEvent(const AiEvent &event);
    void send(quint64 serial, const QByteArray &frame);
    void remove(quint64 serial);

    ServiceLink &m_service;
    Keeper &m_keeper;
    QLocalServer m_server;
    QHash<quint64, Looker> m_lookers; // by a number that is never used again
    quint64 m_lastSerial = 0;
};
