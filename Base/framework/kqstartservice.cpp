#include "kqstartservice.h"

#include "cmdline.h"
#include "iservice.h"
#include "serviceserver.h"

#include <QDebug>

ServiceServer *KQStartService(QString serviceName, IService *service, int argc, char *argv[])
{
    qInfo() << "KQStartService begin";
    cmdline::parser options;
    options.add("recovery", 'r', "是否崩溃恢复");
    options.parse_check(argc, argv);
    const bool recovery = options.exist("recovery");
    qInfo().nospace() << "KQStartService " << recovery;

    if (recovery) {
        qInfo().noquote().nospace() << service->name() << " is recovered";
        service->recover();
    }
    auto *server = new ServiceServer(std::move(serviceName), service, nullptr);
    qInfo() << "KQStartService end";
    return server;
}
