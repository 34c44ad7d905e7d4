#pragma once

#include "iservice.h"
#include "messages.h"

#include <QMutex>

#include <atomic>

class AIServiceController;

/**
 * The service that clients talk to: keeps its state, decides by it which requests may pass, and hands
 * them to the controller, by the table in commandtable.cpp. No domain logic of its own.
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

    /// What the service does for a command.
    struct CommandEntry
    {
        ai::Command command;
        /// Begins the line of the log when no camera is connected; null for a command that needs none.
        const char *logName;
        QVariantMap (*run)(AIService &service, const QVariantMap &params, const QString &requestID);
    };
    /// One entry for each row of ai::commands.
    static const CommandEntry commandTable[];
    static const CommandEntry &commandEntry(ai::Command command);
    /// Carries out a command that the state lets pass, if the camera that it needs is there.
    QVariantMap run(const ai::CommandRow &row, const QVariantMap &params, const QString &requestID);

    AIServiceController *controller;
    std::atomic<ai::State> m_status{ai::State::Closed};
    std::atomic<bool> m_recovering{false};
    QMutex serviceMutex;
    QMutex m_openMutex; ///< lets one of several opens start the controller
};
