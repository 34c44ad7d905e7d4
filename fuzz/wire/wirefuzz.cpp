#include "iasynccommand.h"
#include "iservice.h"
#include "wire.h"

#include <QDebug>
#include <QIODevice>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

/// Gives everything back that a client sent.
class EchoService : public IService
{
public:
    EchoService() : IService("fuzz", false) {}
    QVariantMap open(const QString &requestID) override { return makeResponse(ai::Error::None, requestID); }
    QVariantMap close(const QString &requestID) override { return makeResponse(ai::Error::None, requestID); }
    QVariantMap info(unsigned int, const QVariant &data, const QString &requestID) override
    {
        return makeResponse(ai::Error::None, data, requestID);
    }
    QVariantMap execute(unsigned int, const QVariant &data, const QString &requestID) override
    {
        return makeResponse(ai::Error::None, data.toMap(), requestID);
    }
};

/// A connection on which bytes arrive piece by piece.
class Connection : public QIODevice
{
public:
    Connection() { open(QIODevice::ReadOnly | QIODevice::Unbuffered); }
    void arrive(const QByteArray &bytes) { waiting += bytes; }
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return waiting.size() + QIODevice::bytesAvailable(); }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        const qint64 taken = qMin<qint64>(size, waiting.size());
        std::copy_n(waiting.constData(), taken, data);
        waiting.remove(0, static_cast<int>(taken));
        return taken;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray waiting;
};

/// The way of a payload through the host, from its bytes to the bytes of the response. What was taken once
/// must be taken again: it is what the service sends back.
void handlePayload(const QByteArray &payload)
{
    static EchoService service;
    const QVariant value = wire::decodePayload(payload);
    if (value.isValid() && !wire::decodePayload(wire::encodePayload(value)).isValid())
        std::abort();
    QString text;
    QDebug(&text) << value;

    IAsyncCommand command(&service, value.toMap());
    command.describe();
    QObject::connect(&command, &IAsyncCommand::finished, [](const QVariant &result) {
        if (!wire::decodePayload(wire::encodePayload(result)).isValid())
            std::abort();
    });
    command.run();
}

void handleStream(const QByteArray &bytes, int piece)
{
    Connection connection;
    std::optional<qint32> length;
    for (int start = 0; start < bytes.size(); start += piece) {
        connection.arrive(bytes.mid(start, piece));
        QByteArray payload;
        while (connection.bytesAvailable() > wire::lengthFieldBytes &&
               wire::takePayload(connection, length, payload))
            handlePayload(payload);
    }
}

} // namespace

/// The first byte chooses: 0 gives the rest to the payload decoder; any other is the size of the pieces in
/// which the rest arrives on a connection.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool quiet = [] {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
        return true;
    }();
    if (size == 0 || !quiet)
        return 0;
    const QByteArray rest(reinterpret_cast<const char *>(data) + 1, static_cast<int>(size) - 1);
    if (data[0] == 0)
        handlePayload(rest);
    else
        handleStream(rest, data[0]);
    return 0;
}
