#include "basestrategy.h"
#include "datamanager.h"
#include "matching.h"
#include "messageSender.h"
#include "oneframeidstragegy.h"
#include "scripted.h"
#include "support.h"

#include <opencv2/imgproc.hpp>

#include <array>
#include <cmath>

namespace {

constexpr int featureLength = 512;
constexpr int frameInterval = 30;
constexpr int cropSide = 128;
constexpr int eyeDistance = 40;
/// Better than any cosine: no face replaces the best picture, as in a lesson that has lasted some minutes.
constexpr double bestScore = 1.1;

/// Knows the faces in the order in which they come, and hands out what is ready.
struct FreeFaceID : scripted::FaceID
{
    explicit FreeFaceID(int students)
    {
        cv::RNG random(11);
        for (int i = 0; i < students; ++i) {
            cv::Mat feature(1, featureLength, CV_32F);
            random.fill(feature, cv::RNG::UNIFORM, -1.0, 1.0);
            features.push_back(feature);
            scores.emplace_back(students, 0.1);
            scores.back()[static_cast<std::size_t>(i)] = 0.95;
        }
    }

    int identifyAll(const cv::Mat &, int *id, cv::Mat *feature, std::vector<int> *,
                    std::vector<double> *rowOfScores, bool) override
    {
        const std::size_t face = next++ % features.size();
        *id = static_cast<int>(face);
        *feature = features[face];
        *rowOfScores = scores[face];
        return 0;
    }

    std::vector<cv::Mat> features;
    std::vector<std::vector<double>> scores;
    std::size_t next = 0;
};

/// A class in the frame, and recognisers that know all of it beforehand.
class Classroom
{
public:
    explicit Classroom(int students) : studentCount(students), m_ids(std::make_shared<FreeFaceID>(students))
    {
        // Cells of the frame's proportions, a face of two fifths of its width in each.
        const int columns = static_cast<int>(std::ceil(std::sqrt(students)));
        const int width = 1920 / columns;
        const int height = 1080 / columns;
        const int side = 2 * width / 5;
        cv::randu(m_frame, 0, 255);
        std::vector<cv::Rect> faces;
        for (int i = 0; i < studentCount; ++i) {
            const cv::Rect face(width * (i % columns) + side / 2, height * (i / columns) + side / 4, side,
                                side);
            faces.push_back(face);
            m_eyes.push_back({cv::Point(face.x + face.width / 3, face.y + 2 * face.height / 5),
                              cv::Point(face.x + 2 * face.width / 3, face.y + 2 * face.height / 5)});
            m_recognisers.bodies->rects.emplace_back(width * (i % columns), height * (i / columns), width,
                                                     height);
        }
        m_recognisers.faces->finds(faces);
        m_recognisers.ids = m_ids;
        // Every tenth has a hand up.
        m_recognisers.handup->labels.assign(3 * studentCount, 1);
        m_recognisers.handup->scores.assign(3 * studentCount, 0.9F);
        for (int i = 0; i < studentCount; i += 10)
            m_recognisers.handup->labels[std::size_t{3} * i] = 0;
        m_recognisers.install();
    }
    ~Classroom() { DataManager::instance()->clear(); }

    /// Everybody as after the registration: the running feature of the records grows without bound.
    void seat()
    {
        DataManager::instance()->clear();
        m_ids->next = 0;
        for (int i = 0; i < studentCount; ++i) {
            StudentInfo student;
            student.stuID = QStringLiteral("student%1").arg(i, 3, 10, QLatin1Char('0'));
            student.faceID = i;
            student.registerFeature = student.meanFeature = m_ids->features[static_cast<std::size_t>(i)];
            student.galleryScore = bestScore;
            DataManager::instance()->addStudent(student);
        }
    }

    QImage image() const
    {
        return QImage(m_frame.data, m_frame.cols, m_frame.rows, static_cast<int>(m_frame.step),
                      QImage::Format_RGB888);
    }
    const cv::Mat &frame() const { return m_frame; }
    const std::vector<cv::Rect> &bodies() const { return m_recognisers.bodies->rects; }

    cv::Mat bareConversion() const
    {
        cv::Mat converted;
        cv::cvtColor(m_frame, converted, cv::COLOR_RGB2BGR);
        return converted;
    }

    /// All heads of the frame, which identification needs side by side.
    void bareCrops(const cv::Mat &frame) const
    {
        std::vector<cv::Mat> heads;
        for (const auto &[left, right] : m_eyes) {
            const cv::Point2f centre(static_cast<float>(left.x + right.x) / 2.0F, static_cast<float>(left.y));
            cv::Mat matrix = cv::getRotationMatrix2D(
                centre, 0, static_cast<double>(eyeDistance) / static_cast<double>(right.x - left.x));
            matrix.at<double>(0, 2) += cropSide / 2.0 - static_cast<double>(centre.x);
            matrix.at<double>(1, 2) += cropSide * 0.45 - static_cast<double>(centre.y);
            cv::Mat head;
            cv::warpAffine(frame, head, matrix, cv::Size(cropSide, cropSide), cv::INTER_LINEAR);
            heads.push_back(head);
        }
        benchmark::DoNotOptimize(heads.data());
    }

    /// A running mean, and the cosine to it, in double precision.
    void bareFeatures() const
    {
        for (const cv::Mat &feature : m_ids->features) {
            const cv::Mat mean = 1 * feature + feature / 2;
            cv::Mat a;
            cv::Mat b;
            mean.convertTo(a, CV_64F);
            feature.convertTo(b, CV_64F);
            benchmark::DoNotOptimize(a.dot(b) / (std::sqrt(a.dot(a)) * std::sqrt(b.dot(b))));
        }
    }

private:
    int studentCount;
    std::shared_ptr<FreeFaceID> m_ids;
    ModelManagerTestAccess::Recognisers m_recognisers;
    cv::Mat m_frame = cv::Mat(1080, 1920, CV_8UC3);
    std::vector<std::array<cv::Point, 2>> m_eyes;
};

void identificationPass(benchmark::State &state)
{
    const int students = static_cast<int>(state.range(0));
    Classroom room(students);
    Comparison comparison;
    while (state.KeepRunning()) {
        room.seat();
        comparison.measure([&] { OneFrameIdStragegy(room.frame(), room.bodies()).run(1); },
                           [&] {
                               room.bareCrops(room.frame());
                               room.bareFeatures();
                           });
    }
    if (DataManager::instance()->getFoundStudents().size() != students)
        state.SkipWithError("not everybody was found");
    comparison.report(state);
}
BENCHMARK(identificationPass)->Arg(40)->Unit(benchmark::kMicrosecond)->Iterations(300);

/// From the arrival of a frame on the strategy's thread to its event, but called from here.
void handledFrame(benchmark::State &state, const char *name, unsigned int code)
{
    Classroom room(static_cast<int>(state.range(0)));
    const QImage image = room.image();
    BaseStrategy *strategy = BaseStrategy::createNewStrategy(QLatin1String(name), QStringLiteral("bench"));
    int events = 0;
    QObject::connect(strategy, &BaseStrategy::serviceMessgeSignal, MessageSender::instance(),
                     &MessageSender::sendMessage, Qt::DirectConnection);
    QObject::connect(
        strategy, &BaseStrategy::serviceMessgeSignal, strategy,
        [&](unsigned int event) { events += event == code ? 1 : 0; }, Qt::DirectConnection);
    strategy->start();

    Comparison comparison;
    while (state.KeepRunning()) {
        room.seat();
        comparison.measure([&] { strategy->onRecieveFrame(image); },
                           [&] {
                               const cv::Mat converted = room.bareConversion();
                               room.bareCrops(converted);
                               room.bareFeatures();
                           });
        for (int skipped = 1; skipped < frameInterval; ++skipped)
            strategy->onRecieveFrame(image);
    }
    if (events != static_cast<int>(state.iterations()))
        state.SkipWithError("not each frame had its event");
    comparison.report(state);
    BaseStrategy::release(strategy);
}
BENCHMARK_CAPTURE(handledFrame, handup, "HandupPickStrategy", 1013)
    ->Arg(10)
    ->Arg(40)
    ->Arg(100)
    ->Arg(200)
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(100);
BENCHMARK_CAPTURE(handledFrame, concentration, "ConcerntrationStrategy", 1012)
    ->Arg(10)
    ->Arg(40)
    ->Arg(100)
    ->Arg(200)
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(100);

/// Every student in view and enrolled, and every face somewhat like everybody's.
void assignment(benchmark::State &state)
{
    const auto students = static_cast<std::size_t>(state.range(0));
    cv::RNG random(5);
    std::vector<std::vector<double>> rows(students, std::vector<double>(students));
    std::vector<cv::Point> places;
    for (std::vector<double> &row : rows) {
        for (double &score : row)
            score = random.uniform(0.0, 1.0);
        places.emplace_back(random.uniform(0, 1920), random.uniform(0, 1080));
    }
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(matching::matchRows(rows, 0.8));
        benchmark::DoNotOptimize(matching::nearestPairs(places, places, 10000));
    }
}
BENCHMARK(assignment)->Arg(40)->Arg(100)->Arg(200)->Unit(benchmark::kMillisecond);

} // namespace
