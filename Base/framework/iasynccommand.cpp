#include "iasynccommand.h"

#include "counters.h"
#include "iservice.h"
#include "logline.h"

#include <QCoreApplication>
#include <QDebug>

namespace {

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

QVariantMap withoutDetail(ai::Error error)
{
    return {{QStringLiteral("rsp_error"), code(error)}, {QStringLiteral("rsp_data"), QVariant()}};
}

} // namespace

IAsyncCommand::IAsyncCommand(IService *target, QVariantMap requestMap)
    : request(std::move(requestMap)),
      service(target),
      kind(request.value(QStringLiteral("req_code")).toInt()),
      requestID(request.value(QStringLiteral("req_id")).toString()),
      deadline(request.value(QStringLiteral("req_deadline")).toLongLong()),
      arrived(counters::now())
{
    counters::page().traffic.requestsUnderWay.add();
    const QVariantMap command = request.value(QStringLiteral("req_data")).toMap();
    code = static_cast<unsigned int>(command.value(QStringLiteral("command_code")).toInt());
    data = command.value(QStringLiteral("data"));
}

IAsyncCommand::~IAsyncCommand()
{
    counters::page().traffic.requestsUnderWay.add(-1);
}

QString IAsyncCommand::describe() const
{
    return log_line::text("type: ", kind, ". cmdCode: ", code, ". requestID: ", shown(requestID),
                          ". deadline: ", deadline, ".");
}

void IAsyncCommand::run()
{
    const void *const self = this;
    LOG_DEBUG("run IAsyncCommand=", self, " begin");
    {
        QMutexLocker lock(&service->deadlineMutex);
        service->requestDeadlines[requestID] = deadline;
    }

    QVariantMap result;
    try {
        result = callService();
    } catch (...) {
        result = withoutDetail(ai::Error::Failed);
    }

    {
        QMutexLocker lock(&service->deadlineMutex);
        service->requestDeadlines.remove(requestID);
    }
    result[QStringLiteral("rsp_id")] = request.value(QStringLiteral("req_id2"));
    result[QStringLiteral("type")] = ai::code(ai::MessageType::Reply);
    count(result);
    emit finished(result);
    LOG_DEBUG("run IAsyncCommand=", self, " end: cmd=", kind, ", requestID=", shown(requestID));
}

void IAsyncCommand::count(const QVariantMap &result) const
{
    const bool hasCode = ai::Kind{kind} == ai::Kind::Execute || ai::Kind{kind} == ai::Kind::Info;
    counters::RequestRow &row =
        counters::find(counters::page().requests, counters::requestKey(kind, hasCode ? code : 0));
    counters::addTime(row.time, row.longest, counters::now() - arrived);
    row.requests.add();
    if (result.value(QStringLiteral("rsp_error")).toInt() != 0)
        row.failed.add();
}

QVariantMap IAsyncCommand::callService() const
{
    switch (ai::Kind{kind}) {
    case ai::Kind::Open:
        return open();
    case ai::Kind::Close:
        return close();
    case ai::Kind::Execute:
        return execute();
    case ai::Kind::Info:
        return info();
    default:
        LOG_DEBUG("run IAsyncCommand unknown: requestID=", shown(requestID));
        return withoutDetail(ai::Error::Unknown);
    }
}

QVariantMap IAsyncCommand::open() const
{
    LOG_DEBUG("run IAsyncCommand open: requestID=", shown(requestID));
    QVariantMap result = service->open(requestID);
    result[QStringLiteral("all_use_queue")] = service->allUseQueue.load(std::memory_order_relaxed);
    result[QStringLiteral("info_use_queue")] = codeList(service->infoQueueCodes);
    result[QStringLiteral("cmd_use_queue")] = codeList(service->cmdQueueCodes);
    result[QStringLiteral("use_share_memory")] = service->useShareMemory;
    result[QStringLiteral("forbid_restart")] = service->forbidRestart.load(std::memory_order_relaxed);
    return result;
}

QVariantMap IAsyncCommand::close() const
{
    LOG_DEBUG("run IAsyncCommand close: requestID=", shown(requestID));
    const QVariantMap result = service->close(requestID);
    if (requestID == "self-kill") {
        LOG_INFO("force quit ", requestID);
        // Through the main thread's event loop, which may not be running yet; a direct call would be lost
        // then.
        QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit,
                                  Qt::QueuedConnection);
    }
    return result;
}

QVariantMap IAsyncCommand::execute() const
{
    LOG_DEBUG("run IAsyncCommand execute: requestID=", shown(requestID));
    return service->execute(code, data, requestID);
}

QVariantMap IAsyncCommand::info() const
{
    LOG_DEBUG("run IAsyncCommand info: requestID=", shown(requestID), ", keyCode=", code);
    return service->info(code, data, requestID);
}
