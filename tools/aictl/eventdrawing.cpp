#include "eventdrawing.h"

#include "messages.h"
#include "picture.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace {

const cv::Scalar green(60, 200, 60);
const cv::Scalar orange(0, 160, 255);
const cv::Scalar blue(255, 140, 30);
const cv::Scalar red(50, 50, 230);
const cv::Scalar grey(170, 170, 170);
const cv::Scalar black(0, 0, 0);
const cv::Scalar white(255, 255, 255);

constexpr int lineHeight = 24;
constexpr double textScale = 0.6;

QRect placeOf(const QVariantMap &entry)
{
    return {entry["x"].toInt(), entry["y"].toInt(), entry["width"].toInt(), entry["height"].toInt()};
}

/// Text on a dark bar, moved so that it lies inside the picture.
void drawText(cv::Mat &picture, cv::Point corner, const QString &text, const cv::Scalar &colour)
{
    const auto ascii = text.toLatin1().toStdString();
    const auto size = cv::getTextSize(ascii, cv::FONT_HERSHEY_SIMPLEX, textScale, 1, nullptr);
    corner.x = std::clamp(corner.x, 0, std::max(0, picture.cols - size.width - 8));
    corner.y = std::clamp(corner.y, 0, std::max(0, picture.rows - lineHeight));
    cv::rectangle(picture, {corner.x, corner.y, size.width + 8, lineHeight}, black, cv::FILLED);
    cv::putText(picture, ascii, {corner.x + 4, corner.y + 17}, cv::FONT_HERSHEY_SIMPLEX, textScale, colour, 1,
                cv::LINE_AA);
}

void drawBox(cv::Mat &picture, const QRect &place, const QString &label, const cv::Scalar &colour)
{
    // Whatever an event claims, the drawing stays near the picture.
    const QRect limits(-picture.cols, -picture.rows, 3 * picture.cols, 3 * picture.rows);
    const auto box = place & limits;
    if (box.isEmpty())
        return;
    cv::rectangle(picture, cv::Rect(box.x(), box.y(), box.width(), box.height()), colour, 2);
    drawText(picture, {box.x(), box.y() - lineHeight}, label, colour);
}

/// An arrow above the box, pointing up.
void drawRaisedHand(cv::Mat &picture, const QRect &place)
{
    const cv::Point tip(place.center().x(), std::max(4, place.top() - 2 * lineHeight));
    cv::arrowedLine(picture, {tip.x, tip.y + lineHeight}, tip, orange, 4, cv::LINE_AA, 0, 0.4);
}

void drawHeading(cv::Mat &picture, const QString &text)
{
    drawText(picture, {8, 8}, text, white);
}

bool isDrawable(ai::Event event)
{
    switch (event) {
    case ai::Event::Registered:
    case ai::Event::Recording:
    case ai::Event::BestPictures:
    case ai::Event::Video:
        return false;
    default:
        return ai::find(event) != nullptr;
    }
}

QString nameOf(const QVariantMap &entry)
{
    const auto name = entry["stuID"].toString();
    return name.isEmpty() ? QStringLiteral("?") : name;
}

} // namespace

cv::Mat EventDrawing::draw(const AiEvent &event, const Picture &camera)
{
    if (!isDrawable(event.event()))
        return {};
    auto picture =
        event.event() == ai::Event::Faces ? picture::fromDataText(event.info["image"].toString()) : camera();
    if (!picture.empty())
        drawOn(picture, event);
    return picture;
}

void EventDrawing::remember(const QVariantMap &entry)
{
    const auto place = placeOf(entry);
    if (!place.isEmpty())
        m_places[entry["stuID"].toString()] = place;
}

void EventDrawing::drawOn(cv::Mat &picture, const AiEvent &event)
{
    const auto &info = event.info;
    switch (event.event()) {
    case ai::Event::Faces:
        for (const auto &value : info["galleries"].toList()) {
            const auto face = value.toMap();
            remember(face);
            const auto known = !face["stuID"].toString().isEmpty();
            drawBox(picture, placeOf(face), QStringLiteral("#%1 ").arg(face["gid"].toInt()) + nameOf(face),
                    face["isDetected"].toBool() ? green
                    : known                     ? blue
                                                : grey);
        }
        break;
    case ai::Event::Attention:
        for (const auto &value : info["studentStates"].toList()) {
            const auto student = value.toMap();
            remember(student);
            drawBox(picture, placeOf(student),
                    nameOf(student) + QStringLiteral(" state %1").arg(student["state"].toInt()), blue);
        }
        drawHeading(picture,
                    QStringLiteral("attention %1").arg(info["concerntration"].toDouble(), 0, 'f', 4));
        break;
    case ai::Event::Hands: {
        const auto students = info["handupStudents"].toList();
        for (const auto &value : students) {
            const auto student = value.toMap();
            remember(student);
            drawBox(picture, placeOf(student), nameOf(student) + " hand up", orange);
            drawRaisedHand(picture, placeOf(student));
        }
        drawHeading(picture, QStringLiteral("hands up: %1").arg(students.size()));
        break;
    }
    case ai::Event::Followed:
        remember(info);
        drawBox(picture, placeOf(info), "following " + nameOf(info), red);
        break;
    case ai::Event::GameRegions:
        for (const auto &value : info["functionGameShowRegion"].toList())
            drawBox(picture, placeOf(value.toMap()), nameOf(value.toMap()) + " plays here", green);
        break;
    case ai::Event::Game: {
        int line = 0;
        for (const auto &value : info["functionGameResult"].toList()) {
            const auto player = value.toMap();
            const auto bones = player["bones"].toList();
            for (const auto &bone : bones) {
                const auto point = bone.toMap();
                cv::circle(picture, {point["x"].toInt(), point["y"].toInt()}, 5, green, cv::FILLED);
            }
            drawText(picture, {8, 8 + line++ * lineHeight},
                     nameOf(player) + QStringLiteral(": %1 points").arg(bones.size()), green);
        }
        break;
    }
    case ai::Event::Attributes: {
        int line = 0;
        for (const auto &value : info["studentsAttribute"].toList()) {
            const auto student = value.toMap();
            const auto text = nameOf(student) + QStringLiteral(" row %1").arg(student["row"].toInt()) +
                              (student["glass"].toBool() ? " glasses" : "");
            const auto place = m_places.constFind(student["stuID"].toString());
            if (place != m_places.constEnd())
                drawBox(picture, *place, text, blue);
            else
                drawText(picture, {8, 8 + line++ * lineHeight}, text, blue);
        }
        break;
    }
    case ai::Event::Smile:
        drawBox(picture, placeOf(info), nameOf(info) + " smiles", green);
        break;
    default:
        break;
    }
}
