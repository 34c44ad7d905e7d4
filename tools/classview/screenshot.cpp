#include "screenshot.h"

#include "theme.h"

#include <opencv2/core.hpp>

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

/// What is small in the picture and must keep its colour all the same.
QVector<QRgb> meaningfulColours()
{
    QVector<QRgb> colours{theme::good().rgb(), theme::warning().rgb(), theme::bad().rgb()};
    for (int kind = 0; kind < markKinds; ++kind)
        colours.append(theme::mark(MarkKind(kind)).rgb());
    return colours;
}

/// The 256 colours that stand for the picture best: with all of them a photograph makes a file several times
/// as large.
QImage inFewColours(const QImage &picture)
{
    constexpr int samples = 8000;
    QVector<QRgb> table = meaningfulColours();
    const int colours = 256 - table.size();
    cv::Mat values(samples, 3, CV_32F);
    cv::RNG random(1);
    for (int i = 0; i < samples; ++i) {
        const QRgb pixel =
            picture.pixel(random.uniform(0, picture.width()), random.uniform(0, picture.height()));
        values.at<cv::Vec3f>(i) = {float(qRed(pixel)), float(qGreen(pixel)), float(qBlue(pixel))};
    }
    cv::Mat labels, centres;
    cv::theRNG().state = 1;
    cv::kmeans(values, colours, labels, cv::TermCriteria(cv::TermCriteria::COUNT, 8, 0), 1,
               cv::KMEANS_PP_CENTERS, centres);
    for (int i = 0; i < colours; ++i) {
        const auto centre = centres.at<cv::Vec3f>(i);
        table.append(qRgb(qRound(centre[0]), qRound(centre[1]), qRound(centre[2])));
    }
    return picture.convertToFormat(QImage::Format_Indexed8, table, Qt::ThresholdDither);
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
    int names = 0, hands = 0, attention = 0;
    for (const auto &drawn : m_window->overlay().drawn()) {
        names += drawn.kind == MarkKind::Face && !drawn.label.isEmpty();
        // What has faded is told of another moment than the picture.
        hands += drawn.kind == MarkKind::Hand && drawn.opacity >= 1;
        attention += drawn.kind == MarkKind::Attention && drawn.opacity >= 1;
    }
    return names >= m_wish.names && hands >= m_wish.hands && attention >= m_wish.attention;
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
    picture = inFewColours(picture);
    picture.setText(QStringLiteral("marks"),
                    QString::fromUtf8(QJsonDocument(description).toJson(QJsonDocument::Compact)));
    QSaveFile file(m_wish.file);
    if (file.open(QIODevice::WriteOnly) && picture.save(&file, "PNG", 0) && file.commit())
        return true;
    qCritical().noquote() << "cannot write" << m_wish.file << file.errorString();
    return false;
}
