#pragma once

#include "iservice.h"

#include <QMutex>

#include <atomic>

class AIServiceController;

/**
 * The service that clients talk to: keeps its state, decides by it which requests may pass, and hands
 * them to the controller. No domain logic of its own.
 *
 * States: 0 closed, 1 open (reader connection, timers and store), 2 initialised (models loaded).
 *
 * Threads: requests come on pool threads. close, execute, recover and disconnectReset take turns on one
 * mutex for their whole length; info takes no lock and answers during a long command.
 */
class AIService : public IService
{
    Q_OBJECT

public:
    AIService();
    ~AIService() override;

    QVariantMap open(const QString &requestID) override;
    QVariantMap close(const QString &requestID) override;
    QVariantMap info(unsigned int code, const QVariant &data, const QString &requestID) override;
    QVariantMap execute(unsigned int code, const QVariant &data, const QString &requestID) override;
    /// Brings the service up from the store of a crashed predecessor, without a client. False when the
    /// models can't be loaded, and after an exception; the state reached stays. Tables that the store lacks
    /// are there afterwards.
    bool recover() override;
    /// Ends the running analyses. Students, recording and state stay.
    bool disconnectReset() override;

    /// The version that clients see, major and minor.
    static QString version();

protected:
    void run() override;

private:
    bool recoverFromStore();
    QVariantMap initAIService(const QVariantMap &params);
    QVariantMap status() const;
    /// The command of a code in state 2; without "rsp_error" 0 for an unknown code.
    QVariantMap dispatch(unsigned int code, const QVariantMap &params, const QString &requestID);

    AIServiceController *controller;
    std::atomic<int> m_status{0};
    std::atomic<bool> m_recovering{false};
    QMutex serviceMutex;
    QMutex m_openMutex; ///< lets one of several opens start the controller
};
