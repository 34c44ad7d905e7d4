#pragma once

#include "fakes.h"
#include "modelmanager.h"

#include <type_traits>

/// Puts recognisers into the model manager.
class ModelManagerTestAccess
{
public:
    /// One scripted recogniser of each class, in the manager for as long as this lives.
    struct Recognisers : scripted::Recognisers
    {
        Recognisers() { install(); }
        ~Recognisers() { clear(); }

        /// Again, after one of them was replaced.
        void install() const
        {
            forEach([](const auto &fake) { put(fake); });
        }
    };

    static void clear()
    {
        ModelManager &manager = ModelManager::instance();
        std::lock_guard<std::mutex> locker(manager.m_lock);
        manager.forEach([](Recogniser, auto &member) { member.reset(); });
    }

private:
    template <class Fake>
    static void put(const std::shared_ptr<Fake> &fake)
    {
        ModelManager &manager = ModelManager::instance();
        std::lock_guard<std::mutex> locker(manager.m_lock);
        manager.forEach([&fake](Recogniser, auto &member) {
            if constexpr (std::is_assignable_v<decltype(member), const std::shared_ptr<Fake> &>)
                member = fake;
        });
    }
};
