#include "iasynccommand.h"

#include "iservice.h"

#include <QCoreApplication>
#include <QDebug>

namespace {

enum RequestKind
{
    openRequest = 1,
    closeRequest = 2,
    executeRequest = 3,
    infoRequest = 4
};

constexpr int responseType = 1;
constexpr int internalError = -2;
constexpr int unknownKind = -10;

/// The identifier as the log shows it. A client may choose one of any length.
QString shown(const QString &requestID)
{
    constexpr int longest = 200;
    return requestID.size() <= longest ? requestID : requestID.left(longest) + "...";
}

QVariantList codeList(const QSet<unsigned int> &codes)
{
    QVariantList list;
    for (unsigned int code : codes)
        list.append(code);
    return list;
}

QVariantMap withoutDetail(int error)
{
    return {{"rsp_error", error}, {"rsp_data", QVariant()}};
}

} // namespace

IAsyncCommand::IAsyncCommand(IService *target, QVariantMap requestMap)
    : request(std::move(requestMap)), service(target)
{
}

QString IAsyncCommand::describe() const
{
    const QString line("type: %1. cmdCode: %2. requestID: %3. deadline: %4.");
    return line.arg(QString::number(kind()), QString::number(command().code), shown(requestID()),
                    QString::number(deadline()));
}

void IAsyncCommand::run()
{
    const void *const self = this;
    qDebug().nospace() << "run IAsyncCommand=" << self << " begin";
    const QString id = requestID();
    {
        QMutexLocker lock(&service->deadlineMutex);
        service->requestDeadlines[id] = deadline();
    }

    QVariantMap result;
    try {
        result = callService();
    } catch (...) {
        result = withoutDetail(internalError);
    }

    {
        QMutexLocker lock(&service->deadlineMutex);
        service->requestDeadlines.remove(id);
    }
    result["rsp_id"] = request.value("req_id2");
    result["type"] = responseType;
    emit finished(result);
    qDebug().noquote().nospace() << "run IAsyncCommand=" << self << " end: cmd=" << kind()
                                 << ", requestID=" << shown(id);
}

IAsyncCommand::Command IAsyncCommand::command() const
{
    const QVariantMap data = request.value("req_data").toMap();
    return {static_cast<unsigned int>(data.value("command_code").toInt()), data.value("data")};
}

QVariantMap IAsyncCommand::callService() const
{
    switch (kind()) {
    case openRequest:
        return open();
    case closeRequest:
        return close();
    case executeRequest:
        return execute();
    case infoRequest:
        return info();
    default:
        qDebug().noquote().nospace() << "run IAsyncCommand unknown: requestID=" << shown(requestID());
        return withoutDetail(unknownKind);
    }
}

QVariantMap IAsyncCommand::open() const
{
    qDebug().noquote().nospace() << "run IAsyncCommand open: requestID=" << shown(requestID());
    QVariantMap result = service->open(requestID());
    result["all_use_queue"] = service->allUseQueue.load(std::memory_order_relaxed);
    result["info_use_queue"] = codeList(service->infoQueueCodes);
    result["cmd_use_queue"] = codeList(service->cmdQueueCodes);
    result["use_share_memory"] = service->useShareMemory;
    result["forbid_restart"] = service->forbidRestart.load(std::memory_order_relaxed);
    return result;
}

QVariantMap IAsyncCommand::close() const
{
    const QString id = requestID();
    qDebug().noquote().nospace() << "run IAsyncCommand close: requestID=" << shown(id);
    const QVariantMap result = service->close(id);
    if (id == "self-kill") {
        qInfo().noquote().nospace() << "force quit " << id;
        // Through the main thread's event loop, which may not be running yet; a direct call would be lost
        // then.
        QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit,
                                  Qt::QueuedConnection);
    }
    return result;
}

QVariantMap IAsyncCommand::execute() const
{
    const QString id = requestID();
    qDebug().noquote().nospace() << "run IAsyncCommand execute: requestID=" << shown(id);
    const Command wanted = command();
    return service->execute(wanted.code, wanted.data, id);
}

QVariantMap IAsyncCommand::info() const
{
    const QString id = requestID();
    const Command wanted = command();
    qDebug().noquote().nospace() << "run IAsyncCommand info: requestID=" << shown(id)
                                 << ", keyCode=" << wanted.code;
    return service->info(wanted.code, wanted.data, id);
}
