#include "summary.h"

#include <algorithm>

void Summary::Series::add(double value)
{
    ++count;
    sum += value;
    most = std::max(most, value);
}

QJsonValue Summary::Series::mean() const
{
    return count > 0 ? QJsonValue(sum / count) : QJsonValue();
}

void Summary::add(const AiEvent &event)
{
    if (event.event() == ai::Event::Hands)
        m_hands.add(event.info.value("handupStudents").toList().size());
    if (event.event() != ai::Event::Attention)
        return;
    const int students = event.info.value("studentStates").toList().size();
    m_presence.add(students);
    if (students > 0)
        m_attention.add(event.info.value("concerntration").toDouble() / students);
}

QJsonObject Summary::take()
{
    QJsonObject minute{
        {"attention", QJsonObject{{"events", m_attention.count}, {"mean", m_attention.mean()}}},
        {"hands", QJsonObject{{"events", m_hands.count}, {"mean", m_hands.mean()}, {"most", m_hands.most}}},
        {"presence",
         QJsonObject{{"events", m_presence.count}, {"mean", m_presence.mean()}, {"most", m_presence.most}}}};
    *this = {};
    return minute;
}
