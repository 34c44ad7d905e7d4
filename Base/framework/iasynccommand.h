#pragma once

#include <QObject>
#include <QRunnable>
#include <QVariant>

#include <cstdint>

class IService;

/**
 * One request on its way through the thread pool: turns the request map into a call of the service and its
 * result into the response map.
 *
 * Threads: made on the server thread, run once on a pool thread, and deleted there by the pool. Nothing
 * cancels it: a client that is gone or a deadline that has passed leaves it running.
 */
class IAsyncCommand : public QObject, public QRunnable
{
    Q_OBJECT

public:
    /// @param target the service that answers; not owned, lives longer than the command
    IAsyncCommand(IService *target, QVariantMap requestMap);
    ~IAsyncCommand() override;

    /// A line for the log. A long request identifier is cut in it.
    QString describe() const;

    void run() override;

signals:
    /// The response, a map with "rsp_id" and "type" beside what the service answered. Comes exactly once.
    void finished(QVariant result);

private:
    QVariantMap callService() const;
    void count(const QVariantMap &result) const;
    QVariantMap open() const;
    QVariantMap close() const;
    QVariantMap execute() const;
    QVariantMap info() const;

    QVariantMap request;
    IService *service;

    // What the request says, read once.
    int kind;
    QString requestID;
    qint64 deadline;
    unsigned int code; ///< of execute and info
    QVariant data;     ///< of execute and info

    const std::int64_t arrived; ///< time of the counters' clock
};
