#include "datamanager.h"
#include "imageutil.h"
#include "qstorage.h"
#include "queuedframes.h"
#include "videorecorder.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QThread>

#include <chrono>

// What the pictures, the table of students, the store and the recorder add to the bare operations. Each
// measurement of ours stands behind the bare one ("Bare...") that it is to be compared with.

namespace {

constexpr int frameWidth = 1920;
constexpr int frameHeight = 1080;
constexpr int studentCount = 60;
constexpr int featureLength = 512;

/// A picture with structure and a little noise, which an encoder finds as hard as a camera's.
cv::Mat scene(int width, int height, int shift)
{
    cv::Mat small(height / 40, width / 40, CV_8UC3), picture, noise(height, width, CV_8UC3);
    cv::RNG random(5);
    random.fill(small, cv::RNG::UNIFORM, 0, 200);
    cv::resize(small, picture, cv::Size(width, height), 0, 0, cv::INTER_CUBIC);
    random.fill(noise, cv::RNG::UNIFORM, 0, 12);
    picture += noise;
    cv::circle(picture, cv::Point(shift * 9 % width, height / 2), height / 8, cv::Scalar(20, 40, 200),
               cv::FILLED);
    return picture;
}

QImage frameOf(const cv::Mat &picture)
{
    return QImage(picture.data, picture.cols, picture.rows, static_cast<int>(picture.step),
                  QImage::Format_RGB888);
}

void bareColourConversion(benchmark::State &state)
{
    const cv::Mat frame = scene(frameWidth, frameHeight, 0);
    for (auto _ : state) {
        cv::Mat converted;
        cv::cvtColor(frame, converted, cv::COLOR_RGB2BGR);
        benchmark::DoNotOptimize(converted.data);
    }
}
BENCHMARK(bareColourConversion)->Name("BareCvtColor")->Unit(benchmark::kMicrosecond);

void convertFrame(benchmark::State &state)
{
    const cv::Mat frame = scene(frameWidth, frameHeight, 0);
    const QImage image = frameOf(frame);
    for (auto _ : state)
        benchmark::DoNotOptimize(ai_image::convertQImage2Mat(image).data);
}
BENCHMARK(convertFrame)->Name("ConvertQImage2Mat")->Unit(benchmark::kMicrosecond);

void bareJpegText(benchmark::State &state)
{
    const int height = static_cast<int>(state.range(0));
    const cv::Mat picture = scene(height * frameWidth / frameHeight, height, 0);
    for (auto _ : state) {
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        frameOf(picture).save(&buffer, "JPG", -1);
        benchmark::DoNotOptimize(buffer.data().toBase64().size());
    }
}
BENCHMARK(bareJpegText)->Name("BareJpegAndBase64")->Arg(frameHeight)->Arg(128)->Unit(benchmark::kMicrosecond);

void jpegText(benchmark::State &state)
{
    const int height = static_cast<int>(state.range(0));
    const cv::Mat picture = scene(height * frameWidth / frameHeight, height, 0);
    for (auto _ : state)
        benchmark::DoNotOptimize(ai_image::convertMat2Base64(picture).size());
}
BENCHMARK(jpegText)->Name("ConvertMat2Base64")->Arg(frameHeight)->Arg(128)->Unit(benchmark::kMicrosecond);

cv::Mat randomFeature(int seed)
{
    cv::Mat feature(1, featureLength, CV_32F);
    cv::RNG(static_cast<uint64_t>(seed) + 1).fill(feature, cv::RNG::UNIFORM, -1.0, 1.0);
    return feature;
}

StudentInfo makeStudent(int index)
{
    StudentInfo student;
    student.stuID = QString("student%1").arg(index, 3, 10, QChar('0'));
    student.faceID = index;
    student.faceRect = student.bodyRect = cv::Rect(index, index, 128, 128);
    student.galleryImage = student.bestGallery = scene(128, 128, index);
    student.registerFeature = student.meanFeature = randomFeature(index);
    return student;
}

void bareFeatureArithmetic(benchmark::State &state)
{
    const cv::Mat registered = randomFeature(1), feature = randomFeature(1);
    for (auto _ : state) {
        const cv::Mat meanFeature = 1 * registered + feature / 2;
        cv::Mat a, b;
        meanFeature.convertTo(a, CV_64F);
        feature.convertTo(b, CV_64F);
        benchmark::DoNotOptimize(a.dot(b) / (std::sqrt(a.dot(a)) * std::sqrt(b.dot(b))));
    }
}
BENCHMARK(bareFeatureArithmetic)->Name("BareFeatureArithmetic");

/// The last of 60 students in the order of the walk, with a face that matches and one that does not.
void updateFaceRect(benchmark::State &state)
{
    DataManager *manager = DataManager::instance();
    manager->clear();
    for (int i = 0; i < studentCount; ++i)
        manager->addStudent(makeStudent(i));
    const cv::Mat feature = randomFeature(studentCount - 1), face = scene(128, 128, 0);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            manager->updateFaceRect(studentCount - 1, cv::Rect(1, 2, 3, 4), feature, face));
}
BENCHMARK(updateFaceRect)->Name("UpdateFaceRect");

void bareSixtyJpegTexts(benchmark::State &state)
{
    const StudentInfo student = makeStudent(0);
    for (auto _ : state) {
        for (int i = 0; i < studentCount; ++i)
            benchmark::DoNotOptimize(ai_image::convertMat2Base64(student.bestGallery).size());
    }
}
BENCHMARK(bareSixtyJpegTexts)->Name("BareJpegTextsOf60")->Unit(benchmark::kMillisecond)->UseRealTime();

/// What the storage timer does every six minutes; each row is committed to the disk by itself.
void saveStudents(benchmark::State &state)
{
    QSqliteStorage *store = QSqliteStorage::instance();
    store->open(true);
    QVector<StudentInfo> students;
    for (int i = 0; i < studentCount; ++i) {
        students.append(makeStudent(i));
        store->addFaceMat(students[i].stuID, ai_image::convertMat2Base64(students[i].galleryImage),
                          cv::Rect());
    }
    for (auto _ : state) {
        for (const StudentInfo &student : qAsConst(students))
            store->updateStudentInfo(student);
    }
    store->remove();
}
BENCHMARK(saveStudents)->Name("SaveStudents60")->Unit(benchmark::kMillisecond)->UseRealTime();

constexpr int pictureCount = 8;
constexpr int recordedPictures = 60;

std::vector<cv::Mat> scenes()
{
    std::vector<cv::Mat> result;
    result.reserve(pictureCount);
    for (int i = 0; i < pictureCount; ++i)
        result.push_back(scene(frameWidth, frameHeight, i));
    return result;
}

/// Each iteration makes one picture of the film.
void countPictures(benchmark::internal::Benchmark *measured)
{
    measured->Unit(benchmark::kMillisecond)
        ->Iterations(recordedPictures)
        ->Repetitions(5)
        ->ReportAggregatesOnly()
        ->MeasureProcessCPUTime()
        ->UseRealTime();
}

/// One picture into the open file; opening and closing it are not counted.
void bareEncoder(benchmark::State &state)
{
    const std::vector<cv::Mat> pictures = scenes();
    cv::VideoWriter writer("bare.mp4", cv::CAP_FFMPEG, cv::VideoWriter::fourcc('x', '2', '6', '4'), 1.0,
                           cv::Size(frameWidth, frameHeight), true);
    size_t next = 0;
    for (auto _ : state)
        writer.write(pictures[next++ % pictureCount]);
}
BENCHMARK(bareEncoder)->Name("BareEncodedPicture")->Apply(countPictures);

constexpr int recordInterval = 30; // one frame in 30 is recorded

void startRecording()
{
    RecordParam param;
    param.recordPath = ".";
    VideoRecorder::instance()->start(param);
}

/// Each measured frame is the recorded one of its 30; the skipped ones are not counted.
void recordFrame(benchmark::State &state)
{
    const std::vector<cv::Mat> pictures = scenes();
    VideoRecorder *recorder = VideoRecorder::instance();
    startRecording();
    const QImage skipped(16, 16, QImage::Format_RGB888);
    for (int i = 0; i < recordInterval; ++i) // opens the file
        recorder->onRecvFrame(skipped);
    size_t next = 0;
    for (auto _ : state)
        for (int i = 0; i < recordInterval; ++i)
            recorder->onRecvFrame(frameOf(pictures[next++ / recordInterval % pictureCount]));
    recorder->stop();
}
BENCHMARK(recordFrame)->Name("ThirtyFramesOneRecorded")->Apply(countPictures);

/// Emits the frames that lie between two recorded ones and waits until the receiver is through with them.
double secondsForSkippedFrames(Camera &camera, QObject *receiver, const QImage &frame)
{
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 1; i < recordInterval; ++i)
        emit camera.newImageSignal(frame);
    QMetaObject::invokeMethod(
        receiver, [] {}, Qt::BlockingQueuedConnection);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void bareQueuedFrames(benchmark::State &state)
{
    QThread thread;
    Receiver receiver;
    receiver.moveToThread(&thread);
    thread.start();
    Camera camera;
    QObject::connect(&camera, &Camera::newImageSignal, &receiver, &Receiver::onFrame);
    const QImage frame(frameWidth, frameHeight, QImage::Format_RGB888);
    for (auto _ : state)
        state.SetIterationTime(secondsForSkippedFrames(camera, &receiver, frame));
    thread.quit();
    thread.wait();
}
BENCHMARK(bareQueuedFrames)->Name("Bare29QueuedFrames")->UseManualTime()->Unit(benchmark::kMicrosecond);

void skipFrames(benchmark::State &state)
{
    VideoRecorder *recorder = VideoRecorder::instance();
    for (const QString &file : QDir(".").entryList({"_*.mp4"}))
        QFile::remove(file);
    startRecording();
    // Nothing is recorded of a picture without a format; but the file is opened, which tells the counter.
    QDir folder(".");
    for (folder.refresh(); folder.entryList({"_*.mp4"}).isEmpty(); folder.refresh())
        recorder->onRecvFrame(QImage());

    Camera camera;
    QObject::connect(&camera, &Camera::newImageSignal, recorder, &VideoRecorder::onRecvFrame);
    const QImage frame(frameWidth, frameHeight, QImage::Format_RGB888);
    for (auto _ : state) {
        state.SetIterationTime(secondsForSkippedFrames(camera, recorder, frame));
        recorder->onRecvFrame(QImage()); // the one that would be recorded
    }
    recorder->stop();
}
BENCHMARK(skipFrames)->Name("Skip29Frames")->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home;
    if (!home.isValid() || !QDir::setCurrent(home.path()))
        return 1;
    QLoggingCategory::setFilterRules("*=false");
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
