#pragma once

#include "iservice.h"
#include "messageSender.h"

#include <algorithm>
#include <mutex>
#include <thread>
#include <vector>

/// A service that keeps the events that MessageSender hands it.
class EventCatcher : public IService
{
public:
    struct Event
    {
        unsigned int code;
        QVariantMap info;
        QString type;
        QString requestID;
        std::thread::id sender;
    };

    /// The one catcher of the test program, empty. Never destroyed: threads of strategies outlive the tests.
    static EventCatcher &fresh()
    {
        static EventCatcher &catcher = *new EventCatcher;
        std::lock_guard<std::mutex> locker(catcher.m_lock);
        catcher.m_events.clear();
        return catcher;
    }

    std::vector<Event> events(unsigned int code = 0) const
    {
        std::lock_guard<std::mutex> locker(m_lock);
        std::vector<Event> chosen;
        std::copy_if(m_events.begin(), m_events.end(), std::back_inserter(chosen),
                     [&](const Event &event) { return code == 0 || event.code == code; });
        return chosen;
    }

    QVariantMap open(const QString &) override { return {}; }
    QVariantMap close(const QString &) override { return {}; }
    QVariantMap info(unsigned int, const QVariant &, const QString &) override { return {}; }
    QVariantMap execute(unsigned int, const QVariant &, const QString &) override { return {}; }

private:
    EventCatcher() : IService(QStringLiteral("catcher"), false)
    {
        connect(
            this, &IService::serviceMessgeSignal, this,
            [this](uint code, const QVariant &info, const QString &type, const QString &requestID) {
                std::lock_guard<std::mutex> locker(m_lock);
                m_events.push_back({code, info.toMap(), type, requestID, std::this_thread::get_id()});
            },
            Qt::DirectConnection);
        MessageSender::instance()->setService(this);
    }

    mutable std::mutex m_lock;
    std::vector<Event> m_events;
};
