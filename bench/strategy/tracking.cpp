#include "datamanager.h"
#include "scripted.h"
#include "support.h"
#include "trackingstrategy.h"

#include <opencv2/imgproc.hpp>
#include <opencv2/tracking.hpp>
// The legacy header needs the one above.
#include <opencv2/tracking/tracking_legacy.hpp>

namespace {

constexpr int columns = 5;
constexpr int startMargin = 10; // pixels of the half frame around a face

cv::Rect faceOf(int student)
{
    return cv::Rect(150 + 340 * (student % columns), 100 + 240 * (student / columns), 100, 100);
}

cv::Mat scene()
{
    cv::Mat small(135, 240, CV_8UC3);
    cv::RNG(3).fill(small, cv::RNG::UNIFORM, 0, 255);
    cv::Mat frame;
    cv::resize(small, frame, cv::Size(1920, 1080), 0, 0, cv::INTER_CUBIC);
    return frame;
}

cv::Mat halved(const cv::Mat &frame)
{
    cv::Mat half;
    cv::resize(frame, half, cv::Size(frame.cols / 2, frame.rows / 2), 0, 0, cv::INTER_LINEAR);
    return half;
}

/// A pass over so many followed students, beside one halved frame and the update of a tracker for each on the
/// same box. No face is found, so nobody is put right.
void trackingPass(benchmark::State &state)
{
    const int count = static_cast<int>(state.range(0));
    ModelManagerTestAccess::Recognisers recognisers;
    const cv::Mat frame = scene();
    const cv::Mat firstHalf = halved(frame);
    DataManager::instance()->clear();
    TrackingStrategy *strategy = new TrackingStrategy(QStringLiteral("bench"));
    std::vector<cv::Ptr<cv::legacy::TrackerKCF>> bare;
    for (int i = 0; i < count; ++i) {
        StudentInfo student;
        student.stuID = QString::number(i);
        student.faceID = i;
        student.faceRect = faceOf(i);
        DataManager::instance()->addStudent(student);
        strategy->startTracking(student.stuID, student.stuID);
        const cv::Rect face = student.faceRect;
        bare.push_back(cv::legacy::TrackerKCF::create());
        bare.back()->init(firstHalf,
                          cv::Rect(face.x / 2 - startMargin, face.y / 2 - startMargin,
                                   face.width / 2 + 2 * startMargin, face.height / 2 + 2 * startMargin));
    }
    strategy->handleFrame(frame); // starts the trackers

    Comparison comparison;
    while (state.KeepRunning())
        comparison.measure([&] { strategy->handleFrame(frame); },
                           [&] {
                               const cv::Mat half = halved(frame);
                               cv::Rect2d box;
                               for (const auto &tracker : bare)
                                   benchmark::DoNotOptimize(tracker->update(half, box));
                           });
    comparison.report(state);
    BaseStrategy::release(strategy);
    DataManager::instance()->clear();
}
BENCHMARK(trackingPass)->Arg(1)->Arg(5)->Arg(20)->Unit(benchmark::kMicrosecond)->Iterations(20);

} // namespace
