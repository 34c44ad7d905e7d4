#include "democlass.h"

#include "cutout.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <map>

namespace {

const cv::Size frameSize(1920, 1080);

/// What stands in front of each row of people: a cupboard before the walker, then the three rows of desks.
/// The bands reach down to the next row's desk, so that nobody shows below a desk.
struct Furniture
{
    int top;
    int height;
    cv::Scalar colour;
};
const Furniture furniture[] = {{286, 60, {128, 146, 158}},
                               {452, 60, {92, 132, 168}},
                               {738, 74, {86, 126, 164}},
                               {1000, 80, {80, 120, 158}}};
const int walkersRow = 0;

/// The walker stands, walks, stands ...: who is to be followed from the place where he was found must not be
/// far away from it when that comes to an end. Up and down with each step, to and fro along the wall.
const int standFrames = 240;
const int walkFrames = 240;
const int walkCycle = standFrames + walkFrames;
const int crossingFrames = 2400; // of walking, from one end of the wall to the other

/// Where somebody sits, and how: the middle of the face, the row, and a phase that sets the movements apart.
/// Dora and Emma share a desk, and Carl sits before them: whose arm is up must be told from close by.
struct Seat
{
    const char *name;
    cv::Point2d face;
    double phase;
    int row;
};
const Seat seats[] = {
    {"Gustav", {960, 168}, 0.0, walkersRow},
    {"Flora", {470, 374}, 1.1, 1},
    {"Henry", {1450, 352}, 2.3, 1},
    {"Dora", {900, 566}, 3.7, 2},
    {"Emma", {1215, 564}, 4.4, 2},
    {"Adrian", {330, 844}, 5.2, 3},
    {"Carl", {965, 838}, 0.6, 3},
    {"Bruno", {1590, 830}, 1.9, 3},
};

/// What the arms do, by frames; the whole plan repeats itself each minute.
struct Act
{
    const char *name;
    int begin;
    int end;
    Gesture gesture;
    int side; ///< -1: the arm left of the head in the picture, 1: right of it
};
const int planLength = 1800;
const Act acts[] = {
    {"Adrian", 120, 480, Gesture::High, -1},      {"Henry", 200, 620, Gesture::AtChin, 1},
    {"Bruno", 260, 700, Gesture::BehindHead, 1},  {"Emma", 300, 720, Gesture::Bent, 1},
    {"Carl", 330, 700, Gesture::AtChin, -1},      {"Dora", 540, 900, Gesture::Bent, 1},
    {"Flora", 600, 960, Gesture::Bent, 1},        {"Adrian", 660, 1020, Gesture::InHair, 1},
    {"Carl", 900, 1260, Gesture::High, 1},        {"Emma", 960, 1260, Gesture::AtChin, -1},
    {"Henry", 1020, 1400, Gesture::InHair, -1},   {"Dora", 1080, 1440, Gesture::InHair, 1},
    {"Adrian", 1200, 1560, Gesture::Aside, 1},    {"Bruno", 1260, 1620, Gesture::High, 1},
    {"Emma", 1380, 1740, Gesture::High, 1},       {"Flora", 1320, 1680, Gesture::AtChin, 1},
    {"Carl", 1500, 1760, Gesture::BehindHead, 1},
};
const int actFrames = 15; // from the desk all the way up

double wave(int number, double period, double phase)
{
    return std::sin(2 * CV_PI * number / period + phase);
}

cv::Rect bandBelow(const Furniture &piece)
{
    return {0, piece.top, frameSize.width, piece.height};
}

/// A soft-edged coloured sheet on the wall.
void hang(cv::Mat &wall, const cv::Rect &place, const cv::Scalar &colour)
{
    cv::rectangle(wall, place, colour, cv::FILLED);
    cv::rectangle(wall, place, colour * 0.7, 5);
    for (int y = place.y + 25; y < place.br().y - 15; y += 22)
        cv::line(wall, {place.x + 18, y}, {place.br().x - 18 - (y * 7) % 40, y}, colour * 0.86, 6);
}

/// The room without people: the back wall, the cupboard, the desks.
cv::Mat paintedRoom()
{
    cv::Mat room(frameSize, CV_8UC3);
    for (int y = 0; y < room.rows; ++y)
        room.row(y).setTo(cv::Scalar(168, 186, 192) * (0.92 + 0.12 * (1 - double(y) / room.rows)));
    hang(room, {90, 24, 210, 200}, {176, 158, 120});
    hang(room, {760, 16, 330, 210}, {126, 150, 132});
    hang(room, {1560, 30, 240, 190}, {140, 152, 182});
    cv::GaussianBlur(room, room, cv::Size(0, 0), 3);

    for (const Furniture &piece : furniture) {
        const cv::Rect band = bandBelow(piece);
        // The floor between this piece and the next one lies in its shade.
        const cv::Rect below =
            cv::Rect(0, band.br().y, frameSize.width, frameSize.height) & cv::Rect(cv::Point(), frameSize);
        if (!below.empty())
            room(below).setTo(cv::Scalar(118, 128, 134));
        for (int y = band.y; y < band.br().y; ++y) {
            const double light = y < band.y + 10 ? 1.12 : 0.92 - 0.2 * (y - band.y) / band.height;
            room.row(y).setTo(piece.colour * light);
        }
    }

    cv::Mat grain(frameSize, CV_16SC3), result;
    cv::RNG(11).fill(grain, cv::RNG::NORMAL, 0, 5);
    cv::GaussianBlur(grain, grain, cv::Size(0, 0), 0.8);
    cv::add(room, grain, result, cv::noArray(), CV_8U);
    return result;
}

const Portrait *portraitOf(const char *name)
{
    for (const Portrait &portrait : portraits())
        if (qstrcmp(portrait.name, name) == 0)
            return &portrait;
    return nullptr;
}

cv::Rect rounded(const cv::Rect2d &rect)
{
    return {cv::Point(cvRound(rect.x), cvRound(rect.y)),
            cv::Point(cvRound(rect.x + rect.width), cvRound(rect.y + rect.height))};
}

} // namespace

QString DemoClass::findPhotographs()
{
    const QString photographs = QStringLiteral("usr/share/doc/opencv-doc/opencv4/html");
    const auto lieIn = [](const QString &folder) {
        return QFileInfo::exists(folder + QLatin1Char('/') + QLatin1String(handFile()));
    };
    QDir place(QCoreApplication::applicationDirPath());
    do {
        for (const char *unpacked : {"opencv-doc/", "build/opencv-doc/"}) {
            QString folder = place.filePath(QLatin1String(unpacked) + photographs);
            if (lieIn(folder))
                return folder;
        }
    } while (place.cdUp());
    const QString installed = QLatin1Char('/') + photographs;
    return lieIn(installed) ? installed : QString();
}

DemoClass::DemoClass(const QString &photoFolder)
{
    std::map<QString, cv::Mat> photographs;
    const auto photograph = [&](const QString &file) {
        const auto known = photographs.find(file);
        if (known != photographs.end())
            return known->second;
        const QString path = QDir(photoFolder).filePath(file);
        const cv::Mat picture =
            QFileInfo::exists(path) ? cv::imread(path.toLocal8Bit().constData()) : cv::Mat();
        if (picture.empty() && m_error.isEmpty())
            m_error = QStringLiteral("cannot read the photograph %1").arg(path);
        return photographs[file] = picture;
    };

    const cv::Mat hand = photograph(handFile());
    for (const Seat &seat : seats) {
        const Portrait &portrait = *portraitOf(seat.name);
        const cv::Mat picture = photograph(portrait.file);
        if (!isValid())
            return;
        if (!cv::Rect(cv::Point(), picture.size()).contains(portrait.face.br())) {
            m_error = QStringLiteral("the photograph %1 is not the expected one").arg(portrait.file);
            return;
        }
        Actor actor;
        actor.name = seat.name;
        actor.sprite = cutOut(portrait, picture);
        for (const Act &act : acts)
            actor.arms.push_back(qstrcmp(act.name, seat.name) == 0
                                     ? arms(portrait, picture, hand, act.gesture, act.side)
                                     : Sprite());
        actor.row = seat.row;
        actor.smiling = portrait.smiling;
        actor.glasses = portrait.glasses;
        m_actors.push_back(actor);
    }
    m_background = paintedRoom();
}

DemoClass::Pose DemoClass::pose(int actor, int number) const
{
    const Seat &seat = seats[actor];
    Pose pose;
    if (seat.row == walkersRow) {
        const int walked = number / walkCycle * walkFrames + std::max(0, number % walkCycle - standFrames);
        const double way = std::abs(walked % (2 * crossingFrames) - crossingFrames) / double(crossingFrames);
        pose.face = seat.face + cv::Point2d(700 - 1400 * way, 2 * wave(walked, 24, 0));
        return pose;
    }
    pose.face = seat.face + cv::Point2d(6 * wave(number, 230 + 20 * seat.phase, seat.phase),
                                        3 * wave(number, 170, 2 * seat.phase));
    pose.scale = 1 + 0.02 * wave(number, 310, 3 * seat.phase);

    const int moment = number % planLength;
    for (int i = 0; i < int(std::size(acts)); ++i) {
        const Act &act = acts[i];
        if (qstrcmp(act.name, seat.name) != 0 || moment < act.begin || moment >= act.end)
            continue;
        const int fromEdge = std::min(moment - act.begin, act.end - 1 - moment);
        pose.act = i;
        pose.armUp = std::min(1.0, double(fromEdge) / actFrames);
    }
    return pose;
}

cv::Mat DemoClass::frame(int number) const
{
    cv::Mat frame = m_background.clone();
    for (int row = 0; row < int(std::size(furniture)) && isValid(); ++row) {
        const cv::Rect aboveFurniture(0, 0, frameSize.width, furniture[row].top);
        for (int i = 0; i < int(m_actors.size()); ++i) {
            const Actor &actor = m_actors[i];
            if (actor.row != row)
                continue;
            const Pose now = pose(i, number);
            const auto drawArms = [&] {
                const Sprite &arm = actor.arms[std::size_t(now.act)];
                // Lowered arms are below the desk.
                const double top = now.face.y - arm.anchor.y * now.scale;
                const double sunk = (1 - now.armUp) * (aboveFurniture.height - top);
                blend(frame, arm, now.face + cv::Point2d(0, sunk), now.scale, aboveFurniture);
            };
            const bool moving = now.armUp > 0;
            const bool behind = moving && isBehind(acts[now.act].gesture);
            if (behind)
                drawArms();
            blend(frame, actor.sprite, now.face, now.scale, aboveFurniture);
            if (moving && !behind)
                drawArms();
        }
    }
    return frame;
}

QVector<DemoClass::Person> DemoClass::truth(int number) const
{
    QVector<Person> people;
    for (int i = 0; i < int(m_actors.size()); ++i) {
        const Actor &actor = m_actors[i];
        const Pose now = pose(i, number);
        const auto placed = [&](const cv::Rect2d &part) {
            const cv::Point2d corner = now.face + (part.tl() - actor.sprite.anchor) * now.scale;
            return rounded({corner.x, corner.y, part.width * now.scale, part.height * now.scale});
        };
        Person person;
        person.name = actor.name;
        person.face = placed(actor.sprite.face);
        person.body =
            placed(actor.sprite.outline) & cv::Rect(0, 0, frameSize.width, furniture[actor.row].top);
        if (now.armUp >= 0.5)
            person.gesture = acts[now.act].gesture;
        person.handUp = isRaised(person.gesture);
        person.smiling = actor.smiling;
        person.glasses = actor.glasses;
        people.append(person);
    }
    return people;
}

QStringList DemoClass::names() const
{
    QStringList names;
    for (const Actor &actor : m_actors)
        names.append(actor.name);
    return names;
}
