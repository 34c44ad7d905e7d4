#include "photographs.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> entriesOf(const fs::path &folder)
{
    std::vector<fs::path> entries;
    if (fs::is_directory(folder)) {
        for (const auto &entry : fs::directory_iterator(folder))
            entries.push_back(entry.path());
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

std::string marksFile(const std::string &photograph)
{
    return photograph + ".txt";
}

std::vector<Mark> readMarks(const std::string &file)
{
    std::vector<Mark> marks;
    std::ifstream input(file);
    for (std::string line; std::getline(input, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        std::istringstream words(line);
        Mark mark;
        if (!(words >> mark.leftEye.x >> mark.leftEye.y >> mark.rightEye.x >> mark.rightEye.y)) {
            std::fprintf(stderr, "%s: no face in the line %s\n", file.c_str(), line.c_str());
            continue;
        }
        if (!(words >> mark.name))
            mark.name = "-";
        if (!(words >> mark.kind))
            mark.kind = "front";
        marks.push_back(mark);
    }
    return marks;
}

std::vector<Photograph> readFolder(const fs::path &folder)
{
    std::vector<Photograph> photographs;
    for (const auto &path : entriesOf(folder)) {
        if (path.extension() == ".txt")
            continue;
        Photograph photograph;
        photograph.file = path.string();
        photograph.picture = cv::imread(photograph.file, cv::IMREAD_COLOR);
        if (photograph.picture.empty()) {
            std::fprintf(stderr, "%s is no picture\n", photograph.file.c_str());
            continue;
        }
        photograph.marks = readMarks(marksFile(photograph.file));
        photographs.push_back(std::move(photograph));
    }
    return photographs;
}

} // namespace

Photographs readPhotographs(const std::string &folder)
{
    Photographs photographs;
    for (const auto &path : entriesOf(fs::path(folder) / "people")) {
        if (fs::is_directory(path))
            photographs.people.push_back({path.filename().string(), readFolder(path)});
    }
    photographs.room = readFolder(fs::path(folder) / "room");
    photographs.empty = readFolder(fs::path(folder) / "empty");
    return photographs;
}

void writeMarks(const Photograph &photograph)
{
    std::ofstream output(marksFile(photograph.file));
    output << "# left eye (x y), right eye (x y) as seen, name (- if nobody's), front or turned\n";
    for (const auto &mark : photograph.marks)
        output << mark.leftEye.x << ' ' << mark.leftEye.y << ' ' << mark.rightEye.x << ' ' << mark.rightEye.y
               << ' ' << mark.name << ' ' << mark.kind << '\n';
}

cv::Mat emptyRoom(std::mt19937 &random)
{
    const cv::Size frameSize(1920, 1080);
    cv::Mat small(9, 16, CV_8UC3);
    cv::theRNG().state = random();
    cv::randu(small, cv::Scalar::all(70), cv::Scalar::all(150));
    cv::Mat room;
    cv::resize(small, room, frameSize, 0, 0, cv::INTER_CUBIC);
    cv::Mat noise(frameSize, CV_8UC3);
    cv::randn(noise, cv::Scalar::all(8), cv::Scalar::all(4));
    cv::add(room, noise, room);
    return room;
}

cv::Mat resized(const cv::Mat &picture, double scale)
{
    cv::Mat result;
    cv::resize(picture, result, {}, scale, scale, scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
    return result;
}
