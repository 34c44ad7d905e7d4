#include "aiservicecontroller.h"
#include "datamanager.h"
#include "imageutil.h"
#include "imagewritter.h"
#include "qstorage.h"
#include "scripted.h"
#include "support.h"

#include <opencv2/imgproc.hpp>

#include <QSqlQuery>

#include <chrono>
#include <thread>

namespace {

QString faceText()
{
    cv::Mat small(16, 16, CV_8UC3);
    cv::randu(small, 0, 255);
    cv::Mat face;
    cv::resize(small, face, cv::Size(128, 128), 0, 0, cv::INTER_CUBIC);
    return ai_image::convertMat2Base64(face);
}

QVariantMap galleries(const QString &face, int count)
{
    QVariantList list;
    for (int i = 0; i < count; ++i)
        list.append(QVariantMap{{"stuID", QStringLiteral("student%1").arg(i)},
                                {"faceImg", face},
                                {"x", 100},
                                {"y", 100},
                                {"width", 90},
                                {"height", 90}});
    return {{"galleries", list}};
}

template <class Work>
double secondsOf(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// What a registration can't do without: the picture decoded, one row written and committed.
void registerBare(QSqlQuery &insert, const QString &face, int count)
{
    for (int i = 0; i < count; ++i) {
        const QByteArray file = QByteArray::fromBase64(face.section(',', 1).toLatin1());
        const QImage image = QImage::fromData(file, "JPG");
        cv::Mat converted;
        cv::cvtColor(cv::Mat(image.height(), image.width(), CV_8UC4, const_cast<uchar *>(image.constBits()),
                             static_cast<std::size_t>(image.bytesPerLine())),
                     converted, cv::COLOR_BGRA2BGR);
        insert.bindValue(0, QStringLiteral("student%1").arg(i));
        insert.bindValue(1, face);
        insert.exec();
    }
}

/// One command that enrols so many students, in wall-clock time: most of it is the disk's. And the recovery
/// of as many.
void registrations(benchmark::State &state)
{
    ModelManagerTestAccess::Recognisers recognisers;
    ImageWritter camera(QStringLiteral("Camera"), 2, 1024);
    AIServiceController controller;
    controller.init();
    while (!controller.isCameraConnected())
        std::this_thread::yield();
    const QString face = faceText();
    const int count = static_cast<int>(state.range(0));
    const QVariantMap params = galleries(face, count);

    double ours = 0;
    double bare = 0;
    double recovery = 0;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", "bare");
        database.setDatabaseName("bare.data");
        database.open();
        QSqlQuery(database).exec("create table face (id TEXT, image TEXT)");
        QSqlQuery insert(database);
        insert.prepare("insert into face values (?, ?)");
        while (state.KeepRunning()) {
            QSqliteStorage::instance()->open(true);
            controller.deleteAllGalleries();
            ours += secondsOf([&] { controller.registerGallery(params, QStringLiteral("bench")); });
            if (DataManager::instance()->count() != count)
                state.SkipWithError("not everybody was registered");
            bare += secondsOf([&] { registerBare(insert, face, count); });
            controller.deleteAllGalleries();
            recovery += secondsOf([&] { controller.recovery(); });
            if (DataManager::instance()->count() != count)
                state.SkipWithError("not everybody is back");
        }
    }
    QSqlDatabase::removeDatabase("bare");
    controller.close();
    QSqliteStorage::instance()->remove();
    const double scale = 1e6 / static_cast<double>(state.iterations() * count);
    state.counters["ours_us"] = ours * scale; // of a student, as the others
    state.counters["bare_us"] = bare * scale;
    state.counters["recovery_us"] = recovery * scale;
    state.counters["ratio"] = ours / bare;
}
BENCHMARK(registrations)
    ->Arg(60)
    ->Arg(200)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseRealTime();

} // namespace
