#include "modelmanager.h"

#include "aiconfig.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QFileInfo>

#include <algorithm>

namespace {

ModelManager manager;

std::vector<std::string> pathsOf(const RecogniserRow &row)
{
    std::vector<std::string> paths;
    for (const ModelFile &file : row.files) {
        if (file.path)
            paths.push_back(AIConfig::instance().*file.path);
    }
    return paths;
}

bool allExist(const std::vector<std::string> &files)
{
    return std::all_of(files.begin(), files.end(), [](const std::string &file) {
        return QFileInfo::exists(QString::fromStdString(file));
    });
}

template <class Library>
Library *create(const std::vector<std::string> &files, const std::string &common)
{
    return Library::create(files[0], common);
}
template <>
mirovane::FaceDetectionMTCNN *create(const std::vector<std::string> &files, const std::string &common)
{
    return mirovane::FaceDetectionMTCNN::create(files[0], files[1], files[2], common);
}

} // namespace

ModelManager &ModelManager::instance()
{
    return manager;
}

bool ModelManager::init()
{
    qInfo("ai model init begin");
    QElapsedTimer clock;
    clock.start();
    initCaffeModel();
    qInfo() << "ModelManager::init"
            << "load caffe finish";
    initTFModel();
    qInfo().nospace() << "load model finish,time: " << clock.elapsed();
    return m_tfLoaded && m_caffeLoaded;
}

bool ModelManager::initCaffeModel()
{
    m_caffeLoaded = loadStage(LoadStage::First);
    return m_caffeLoaded;
}

bool ModelManager::initTFModel()
{
    m_tfLoaded = loadStage(LoadStage::Second);
    return m_tfLoaded;
}

bool ModelManager::loadStage(LoadStage stage)
{
    return std::all_of(std::begin(recogniserTable), std::end(recogniserTable), [&](const RecogniserRow &row) {
        return row.stage != stage || !AIConfig::instance().isModelWanted(row.mask) || load(row);
    });
}

bool ModelManager::load(const RecogniserRow &row)
{
    switch (row.recogniser) {
    case Recogniser::Bodies:
        if (!m_ssd)
            qInfo().noquote().nospace() << "ssd create,path: " << QString::fromStdString(pathsOf(row)[0]);
        return load(row, m_ssd);
    case Recogniser::Faces:
        return load(row, m_mtcnn);
    case Recogniser::BodyPose:
        return load(row, m_bodyPose);
    case Recogniser::Handup:
        return load(row, m_handup);
    case Recogniser::Emotion:
        return load(row, m_faceEmotion);
    case Recogniser::FaceID:
        return load(row, m_faceId);
    case Recogniser::FaceAttr:
        return load(row, m_faceAttr);
    case Recogniser::Pose:
    case Recogniser::PoseClass:
        break;
    }
    return true;
}

/// Creates one recogniser unless it is there already. False, with a line in the log, if a model file is
/// missing or the library refuses.
template <class Library>
bool ModelManager::load(const RecogniserRow &row, std::shared_ptr<Library> &member)
{
    if (member)
        return true;
    const std::vector<std::string> files = pathsOf(row);
    if (!allExist(files)) {
        qCritical("[%s] model file not exists", row.fileTag);
        return false;
    }
    std::shared_ptr<Library> created;
    try {
        created.reset(create<Library>(files, AIConfig::instance().modelConfigPath));
    } catch (...) {
        // A library that throws has failed like one that returns null.
    }
    if (!created) {
        qCritical("%s create failed", row.name);
        return false;
    }
    {
        std::lock_guard<std::mutex> locker(m_lock);
        member = std::move(created);
    }
    qInfo("%s created", row.name);
    return true;
}

std::shared_ptr<MTCNNModel> ModelManager::createMTCNNModel(const cv::Mat &image, bool withLandmarks)
{
    return std::make_shared<MTCNNModel>(image, current(m_mtcnn), withLandmarks);
}

std::shared_ptr<FaceIDModel> ModelManager::createFaceIDModel(const cv::Mat &image, int action, int id)
{
    return std::make_shared<FaceIDModel>(image, current(m_faceId), action, id);
}

std::shared_ptr<SSDModel> ModelManager::createSSDModel(const cv::Mat &image)
{
    return std::make_shared<SSDModel>(image, current(m_ssd));
}

std::shared_ptr<BodyPoseModel> ModelManager::createBodyPoseModel(const cv::Mat &image,
                                                                 const std::vector<cv::Rect> &bodies)
{
    return std::make_shared<BodyPoseModel>(image, current(m_bodyPose), bodies);
}

std::shared_ptr<HandupModel> ModelManager::createHandupModel(const cv::Mat &image,
                                                             const std::vector<cv::Rect> &bodies)
{
    return std::make_shared<HandupModel>(image, current(m_handup), bodies);
}

std::shared_ptr<FaceAttrModel> ModelManager::createFaceAttrModel(const cv::Mat &image, const cv::Rect &face)
{
    return std::make_shared<FaceAttrModel>(image, current(m_faceAttr), std::vector<cv::Rect>{face});
}

std::shared_ptr<FaceEmotionModel> ModelManager::createFaceEmotionModel(const cv::Mat &image)
{
    return std::make_shared<FaceEmotionModel>(image, current(m_faceEmotion));
}

std::shared_ptr<CMUModel> ModelManager::createCMUModel(const cv::Mat &image)
{
    return std::make_shared<CMUModel>(image, current(m_cmu));
}

std::shared_ptr<CMUModel> ModelManager::createCMUSingleModel(const cv::Mat &image)
{
    return std::make_shared<CMUModel>(image, current(m_cmuSingle));
}

std::shared_ptr<CMUPoseModel> ModelManager::createCMUPoseModel(const cv::Mat &image,
                                                               const std::vector<cv::Mat> &keyPoints)
{
    return std::make_shared<CMUPoseModel>(image, current(m_cmuPose), keyPoints);
}
