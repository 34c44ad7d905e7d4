#pragma once

#include "aiclient.h"

#include <QJsonObject>

/// What the analyses said in a minute, in numbers of the whole class. Threads: one.
class Summary
{
public:
    void add(const AiEvent &event);
    /// The minute as JSON, without its time; then it begins anew.
    QJsonObject take();

private:
    struct Series
    {
        int count = 0;
        double sum = 0;
        double most = 0;

        void add(double value);
        /// Null without a value.
        QJsonValue mean() const;
    };

    Series m_attention; ///< weight of a student, by event
    Series m_presence;  ///< students found, by event
    Series m_hands;     ///< raised hands, by event
};
