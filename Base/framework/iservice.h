#pragma once

#include "imageblock.h"
#include "protocol.h"

#include <QMap>
#include <QMutex>
#include <QSet>
#include <QString>
#include <QThread>
#include <QVariant>

#include <atomic>

class ImageWritter;

/**
 * The service that the host runs: what a request means is decided in a subclass. The thread that it derives
 * from is never started; it only makes the service a QObject with signals.
 *
 * Threads: open, close, info and execute are called from the threads of the global pool, several of them at
 * once; disconnectReset from the server thread, which serves nobody until it returns; recover from the main
 * thread before the server exists. makeResponse and sendServiceMessage may be called from any thread.
 *
 * Failures are returned as a negative "rsp_error" in the result, see makeResponse. An exception that leaves
 * an operation becomes -2 without a detail.
 */
class IService : public QThread
{
    Q_OBJECT

public:
    /// @param name under which clients find the service
    /// @param withShareMemory whether the service writes frames of its own into a segment under its name
    IService(QString name, bool withShareMemory);
    ~IService() override;

    /// The result of each operation is the response to the client, without "rsp_id" and "type".
    virtual QVariantMap open(const QString &requestID) = 0;
    virtual QVariantMap close(const QString &requestID) = 0;
    /// Answers a question; must not wait for a running command.
    virtual QVariantMap info(unsigned int code, const QVariant &data, const QString &requestID) = 0;
    virtual QVariantMap execute(unsigned int code, const QVariant &data, const QString &requestID) = 0;
    /// Rebuilds what a crashed predecessor left. The start goes on whatever the result.
    virtual bool recover();
    /// Ends what clients started. Called for each connection that ends, whichever others remain.
    virtual bool disconnectReset();

    QString name() const { return serviceName; }

    /// A response: "rsp_error", "rsp_error_detail" and "rsp_data".
    static QVariantMap makeResponse(ai::Error error, const QVariant &data, const QString &detail);
    /// The same with an invalid "rsp_data".
    static QVariantMap makeResponse(ai::Error error, const QString &detail);

    /// Sends an event that belongs to a request to all clients.
    void sendServiceMessage(unsigned int msg, const QVariant &eventInfo, QString requestID);
    /// Sends an event of the whole service to all clients.
    void sendServiceMessage(unsigned int msg, const QVariant &eventInfo);

public slots:
    /// Writes a frame into the service's own segment; does nothing without one.
    void sendImageBlock(ImageBlock ib);

signals:
    /// An event on its way to the clients. type is "execute" or "service"; requestID is "0" for the latter.
    void serviceMessgeSignal(uint msg, QVariant eventInfo, QString type, QString requestID);

protected:
    friend class IAsyncCommand;

    QString serviceName;

    QMap<QString, qint64> requestDeadlines; ///< of the running requests, by request identifier
    QMutex deadlineMutex;                   ///< guards requestDeadlines, and nothing is locked under it

    // What the reply to open tells the client of its duties. The sets are constant once clients can connect.
    QSet<unsigned int> cmdQueueCodes;
    QSet<unsigned int> infoQueueCodes;
    std::atomic<bool> allUseQueue{false};
    const bool useShareMemory;
    std::atomic<bool> forbidRestart{false};

    ImageWritter *imageWritter = nullptr; ///< owned; null unless useShareMemory
};
