#include <aiclient.h>
#include <mirovane/recognisers.h>

#include <QCoreApplication>

#include <cstdio>

/// Opens and initialises the service whose socket is named, with raised hands only, and prints the state.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    AiClient client;
    if (argc != 2 || !client.connectToService(argv[1]) || !client.call(AiClient::Open).ok() ||
        !client.call(AiClient::Execute, 1001, QVariantMap{{"handup", true}}).ok())
        return 1;
    const QVariantMap data = client.call(AiClient::Info, 1001).data.toMap();
    std::printf("status %d\n", data.value("status").toInt());
    return 0;
}
