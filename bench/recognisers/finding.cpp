#include "measure.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <map>

namespace {

/// Faces and finds, counted together.
struct Tally
{
    std::map<std::string, std::pair<int, int>> found; ///< by kind: found, all
    std::vector<double> eyeErrors;                    ///< of the worse eye, in eye distances
    std::vector<double> milliseconds;
    int falseFaces = 0;
    int pictures = 0;

    void count(const Mark &mark, const Found &finds)
    {
        auto &[hits, all] = found[mark.kind];
        ++all;
        const int index = findFor(mark, finds);
        if (index < 0)
            return;
        ++hits;
        const auto &points = finds.landmarks[size_t(index)];
        eyeErrors.push_back(std::max(cv::norm(cv::Point2d(points[0]) - mark.leftEye),
                                     cv::norm(cv::Point2d(points[1]) - mark.rightEye)) /
                            mark.eyeDistance());
    }

    void print() const
    {
        for (const char *kind : {"front", "turned"}) {
            const auto entry = found.find(kind);
            if (entry == found.end())
                std::printf(" - |");
            else
                std::printf(" %d of %d |", entry->second.first, entry->second.second);
        }
        std::printf(" %.2f | %.3f / %.3f | %.0f |\n", double(falseFaces) / std::max(1, pictures),
                    percentile(eyeErrors, 0.5), percentile(eyeErrors, 0.95), percentile(milliseconds, 0.5));
    }
};

constexpr const char *columns =
    " front found | turned found | false faces per picture | eye error median / 95 % | "
    "ms processor time |\n|--:|--:|--:|--:|--:|--:|\n";

/// Boxes that belong to none of the marks.
std::vector<size_t> falseBoxes(const Found &found, const std::vector<Mark> &marks)
{
    std::vector<size_t> result;
    for (size_t i = 0; i < found.boxes.size(); ++i) {
        const auto holds = [&](const Mark &mark) {
            return found.boxes[i].contains((mark.leftEye + mark.rightEye) / 2);
        };
        if (std::none_of(marks.begin(), marks.end(), holds))
            result.push_back(i);
    }
    return result;
}

/// The surroundings of a mark, scaled so that its face has a width, into a cell of the frame; all marks that
/// lie in them move along, the one itself first.
std::vector<Mark> paste(cv::Mat &frame, const cv::Rect &cell, const Photograph &photograph, const Mark &mark,
                        double width, std::mt19937 &random)
{
    const double scale = width / (faceWidth * mark.eyeDistance());
    const auto middle = (mark.leftEye + mark.rightEye) / 2;
    const cv::Size2d reach(cell.width / scale, cell.height / scale);
    const cv::Rect shown =
        cv::Rect(cvRound(middle.x - reach.width / 2), cvRound(middle.y - reach.height * 0.4),
                 cvFloor(reach.width), cvFloor(reach.height)) &
        cv::Rect({}, photograph.picture.size());
    auto part = resized(photograph.picture(shown), scale);
    part = part(cv::Rect({}, part.size()) & cv::Rect({}, cell.size()));
    const cv::Point place(cell.x + int(random() % unsigned(cell.width - part.cols + 1)),
                          cell.y + int(random() % unsigned(cell.height - part.rows + 1)));
    part.copyTo(frame({place, part.size()}));

    std::vector<Mark> moved{mark};
    for (const auto &other : photograph.marks) {
        const auto centre = (other.leftEye + other.rightEye) / 2;
        if (centre != middle && shown.contains(centre))
            moved.push_back(other);
    }
    for (auto &each : moved) {
        each.leftEye = (each.leftEye - cv::Point2d(shown.tl())) * scale + cv::Point2d(place);
        each.rightEye = (each.rightEye - cv::Point2d(shown.tl())) * scale + cv::Point2d(place);
    }
    return moved;
}

void draw(cv::Mat &picture, const Photograph &photograph, const Found &found)
{
    const int thick = std::max(2, picture.cols / 500);
    for (size_t i = 0; i < found.boxes.size(); ++i)
        cv::rectangle(picture, found.boxes[i], {60, 200, 60}, thick);
    for (const size_t i : falseBoxes(found, photograph.marks))
        cv::rectangle(picture, found.boxes[i], {40, 40, 230}, thick);
    for (const auto &mark : photograph.marks) {
        if (findFor(mark, found) < 0)
            cv::circle(picture, (mark.leftEye + mark.rightEye) / 2, cvRound(1.3 * mark.eyeDistance()),
                       {230, 100, 30}, thick);
    }
}

/// One picture of all, in a grid of equal cells.
cv::Mat sheet(const std::vector<cv::Mat> &pictures)
{
    const int across = cvCeil(std::sqrt(double(pictures.size())));
    const int down = (int(pictures.size()) + across - 1) / across;
    const cv::Size cell(std::max(320, 1920 / across), std::max(180, 1080 / across));
    cv::Mat result(down * cell.height, across * cell.width, CV_8UC3, cv::Scalar::all(40));
    for (int i = 0; i < int(pictures.size()); ++i) {
        const auto &picture = pictures[size_t(i)];
        const double scale = std::min(double(cell.width) / picture.cols, double(cell.height) / picture.rows);
        auto small = resized(picture, scale);
        small = small(cv::Rect({}, small.size()) & cv::Rect({}, cell));
        small.copyTo(result({{i % across * cell.width, i / across * cell.height}, small.size()}));
    }
    return result;
}

} // namespace

Found detect(mirovane::FaceDetectionMTCNN &detector, const cv::Mat &picture)
{
    Found found;
    detector.detectWithLandmarks(picture, found.boxes, found.scores, found.landmarks, false);
    return found;
}

int findFor(const Mark &mark, const Found &found)
{
    const double width = faceWidth * mark.eyeDistance();
    for (size_t i = 0; i < found.boxes.size(); ++i) {
        const cv::Rect2d box = found.boxes[i];
        if (box.contains((mark.leftEye + mark.rightEye) / 2) && box.width > 0.5 * width &&
            box.width < 2.5 * width)
            return int(i);
    }
    return -1;
}

double percentile(std::vector<double> values, double part)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[size_t(std::lround(part * double(values.size() - 1)))];
}

double millisecondsOf(const std::function<void()> &work)
{
    const auto start = std::clock();
    work();
    return 1000.0 * double(std::clock() - start) / CLOCKS_PER_SEC;
}

void measureSizes(const Recognisers &recognisers, const std::vector<Photograph> &room)
{
    std::vector<std::pair<const Photograph *, const Mark *>> faces;
    for (const auto &photograph : room) {
        for (const auto &mark : photograph.marks)
            faces.emplace_back(&photograph, &mark);
    }
    if (faces.empty())
        return;
    std::printf("\n### Faces by their width, pasted into frames of 1920 by 1080\n\n| face width |%s",
                columns);
    for (const double width : {24, 32, 40, 64, 128}) {
        const int across = width > 100 ? 4 : 6;
        const int down = width > 100 ? 2 : 4;
        Tally tally;
        std::mt19937 random(7);
        for (size_t next = 0; next < faces.size();) {
            auto frame = emptyRoom(random);
            std::vector<Mark> expected;
            std::vector<Mark> all;
            for (int i = 0; i < across * down && next < faces.size(); ++i, ++next) {
                const cv::Rect cell(i % across * frame.cols / across, i / across * frame.rows / down,
                                    frame.cols / across, frame.rows / down);
                const auto moved = paste(frame, cell, *faces[next].first, *faces[next].second, width, random);
                expected.push_back(moved.front());
                all.insert(all.end(), moved.begin(), moved.end());
            }
            Found found;
            tally.milliseconds.push_back(millisecondsOf([&] { found = detect(*recognisers.faces, frame); }));
            ++tally.pictures;
            for (const auto &mark : expected)
                tally.count(mark, found);
            tally.falseFaces += int(falseBoxes(found, all).size());
        }
        std::printf("| %.0f |", width);
        tally.print();
    }
}

void measureRoom(const Recognisers &recognisers, const std::vector<Photograph> &room,
                 const std::string &drawing)
{
    if (room.empty())
        return;
    Tally tally;
    std::vector<cv::Mat> drawn;
    for (const auto &photograph : room) {
        Found found;
        tally.milliseconds.push_back(
            millisecondsOf([&] { found = detect(*recognisers.faces, photograph.picture); }));
        ++tally.pictures;
        for (const auto &mark : photograph.marks)
            tally.count(mark, found);
        tally.falseFaces += int(falseBoxes(found, photograph.marks).size());
        drawn.push_back(photograph.picture.clone());
        draw(drawn.back(), photograph, found);
    }
    std::printf("\n### Photographs of the room as they are\n\n| photographs |%s| %zu |", columns,
                room.size());
    tally.print();
    if (!drawing.empty()) {
        if (cv::imwrite(drawing, sheet(drawn)))
            std::printf("\nDrawn in %s: found green, missed blue, wrongly found red.\n", drawing.c_str());
        else
            std::fprintf(stderr, "%s cannot be written\n", drawing.c_str());
    }
}

void measureEmpty(const Recognisers &recognisers, const std::vector<Photograph> &empty)
{
    if (empty.empty())
        return;
    int falseFaces = 0;
    for (const auto &photograph : empty) {
        const auto &picture = photograph.picture;
        const auto frame = resized(picture, std::min(1920.0 / picture.cols, 1080.0 / picture.rows));
        const auto found = detect(*recognisers.faces, frame);
        falseFaces += int(found.boxes.size());
        for (size_t i = 0; i < found.boxes.size(); ++i)
            std::fprintf(stderr, "%s: a face at %d, %d, %d wide, score %.2f\n", photograph.file.c_str(),
                         found.boxes[i].x, found.boxes[i].y, found.boxes[i].width, double(found.scores[i]));
    }
    std::printf("\n### Pictures without anybody, enlarged to a full frame\n\n"
                "| pictures | false faces | per picture |\n|--:|--:|--:|\n| %zu | %d | %.2f |\n",
                empty.size(), falseFaces, falseFaces / double(empty.size()));
}
