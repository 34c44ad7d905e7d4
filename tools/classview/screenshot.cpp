#include "screenshot.h"

#include <QApplication>
#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace {

constexpr int lookInterval = 100; // milliseconds

QJsonArray rectangle(const QRect &place)
{
    return {place.x(), place.y(), place.width(), place.height()};
}

const char *kindName(MarkKind kind)
{
    const char *const names[markKinds] = {"face", "body", "hand", "attention", "smile", "followed", "game"};
    return names[int(kind)];
}

} // namespace

Screenshot::Screenshot(MainWindow *window, const Wish &wish) : QObject(window), m_window(window), m_wish(wish)
{
    m_clock.start();
    connect(&m_timer, &QTimer::timeout, this, &Screenshot::look);
    m_timer.start(lookInterval);
}

bool Screenshot::isSeen() const
{
    int names = 0, hands = 0;
    for (const auto &drawn : m_window->overlay().drawn()) {
        names += drawn.kind == MarkKind::Face && !drawn.label.isEmpty();
        hands += drawn.kind == MarkKind::Hand;
    }
    return names >= m_wish.names && hands >= m_wish.hands;
}

void Screenshot::look()
{
    const double seconds = double(m_clock.elapsed()) / 1000;
    const bool isLate = seconds > m_wish.atMost;
    if (seconds < m_wish.after || (!isSeen() && !isLate))
        return;
    m_timer.stop();
    const bool isComplete = isSeen() && save();
    if (!isComplete && isLate && save())
        qWarning("not everything that was wished for is to be seen");
    QApplication::exit(isComplete ? 0 : 1);
}

bool Screenshot::save() const
{
    QImage picture = m_window->grab().toImage();
    auto &overlay = m_window->overlay();
    const QPoint corner = overlay.mapTo(m_window, QPoint(0, 0));
    const auto &geometry = m_window->display().geometryEngine();
    QJsonArray marks;
    for (const auto &drawn : overlay.drawn())
        marks.append(QJsonObject{
            {"kind", kindName(drawn.kind)},
            {"student", drawn.student},
            {"place", rectangle(drawn.place)},
            {"label", rectangle(drawn.label.translated(drawn.label.isEmpty() ? QPoint() : corner))}});
    const QRect frame =
        geometry.frameToView().mapRect(QRect({0, 0}, geometry.frameSize())).translated(corner);
    const QJsonObject description{{"marks", marks},
                                  {"picture", rectangle(frame)},
                                  {"frames", double(m_window->camera().frames())},
                                  {"density", picture.devicePixelRatioF()}};
    // In full colour the file would be several times as large.
    picture = picture.convertToFormat(QImage::Format_Indexed8, Qt::DiffuseDither);
    picture.setText(QStringLiteral("marks"),
                    QString::fromUtf8(QJsonDocument(description).toJson(QJsonDocument::Compact)));
    QSaveFile file(m_wish.file);
    if (file.open(QIODevice::WriteOnly) && picture.save(&file, "PNG", 0) && file.commit())
        return true;
    qCritical().noquote() << "cannot write" << m_wish.file << file.errorString();
    return false;
}
