#include "basemodel.h"

#include "counters.h"
#include "rectutil.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QMutex>

namespace {

/// The lock of a recogniser, or none where its row says so.
QMutex *lockOf(const RecogniserRow &row)
{
    static QMutex locks[std::size(recogniserTable)];
    return row.takesTurns ? &locks[&row - recogniserTable] : nullptr;
}

counters::RecogniserRow &countedIn(const RecogniserRow &row)
{
    return counters::find(counters::page().recognisers, int(row.recogniser));
}

} // namespace

BaseModel::BaseModel(const cv::Mat &image, Recogniser recogniser, bool available)
    : m_image(&image),
      m_width(image.cols),
      m_height(image.rows),
      m_available(available),
      m_finished(false),
      m_row(rowOf(recogniser))
{
}

bool BaseModel::detect()
{
    if (!m_available)
        return false;
    if (!prepare())
        return true;
    QElapsedTimer clock;
    clock.start();
    counters::RecogniserRow &counted = countedIn(m_row);
    const std::int64_t begin = counters::now();
    {
        QMutexLocker locker(lockOf(m_row));
        const std::int64_t turn = counters::now();
        const bool succeeded = guarded([this] { call(); }) && fits();
        counters::addTime(counted.time, counted.longest, counters::now() - turn);
        counted.waited.add(turn - begin);
        counted.calls.add();
        if (!succeeded) {
            discard();
            return false;
        }
    }
    conclude();
    qDebug().noquote().nospace() << subject() << m_row.timeText << clock.elapsed();
    m_finished = true;
    return true;
}

void BaseModel::emitFinished(bool) {}

bool BaseModel::prepare()
{
    return true;
}

bool BaseModel::fits() const
{
    return true;
}

void BaseModel::discard() {}

void BaseModel::conclude() {}

QString BaseModel::subject() const
{
    return {};
}

bool BaseModel::hasLength(size_t length, size_t expected) const
{
    if (length == expected)
        return true;
    countedIn(m_row).failed.add();
    qCritical("[%s] recogniser delivered %zu results instead of %zu", m_row.callTag, length, expected);
    return false;
}

void BaseModel::bound(std::vector<cv::Rect> &rects)
{
    for (cv::Rect &rect : rects)
        rect = rect_util::bounded(rect);
}

void BaseModel::logThrown(const char *what) const
{
    countedIn(m_row).failed.add();
    qCritical("[%s] recogniser threw: %s", m_row.callTag, what);
}
