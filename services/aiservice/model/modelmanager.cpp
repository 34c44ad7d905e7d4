#include "modelmanager.h"

#include "aiconfig.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QFileInfo>

#include <algorithm>

namespace {

ModelManager manager;

bool allExist(const std::vector<std::string> &files)
{
    return std::all_of(files.begin(), files.end(), [](const std::string &file) {
        return QFileInfo::exists(QString::fromStdString(file));
    });
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

/// Creates one recogniser unless it is there already. False, with a line in the log, if a model file is
/// missing or the library refuses.
template <class Recogniser, class Create>
bool ModelManager::load(std::shared_ptr<Recogniser> &member, const std::vector<std::string> &files,
                        const char *fileTag, const char *name, Create create)
{
    if (!allExist(files)) {
        qCritical("[%s] model file not exists", fileTag);
        return false;
    }
    std::shared_ptr<Recogniser> created;
    try {
        created.reset(create());
    } catch (...) {
        // A library that throws has failed like one that returns null.
    }
    if (!created) {
        qCritical("%s create failed", name);
        return false;
    }
    {
        std::lock_guard<std::mutex> locker(m_lock);
        member = std::move(created);
    }
    qInfo("%s created", name);
    return true;
}

bool ModelManager::initCaffeModel()
{
    m_caffeLoaded = false;
    const AIConfig &config = AIConfig::instance();
    const std::string &common = config.modelConfigPath;

    if (!m_ssd && config.isModelWanted(AIConfig::ssdMask)) {
        qInfo().noquote().nospace() << "ssd create,path: " << QString::fromStdString(config.ssdModelPath);
        if (!load(m_ssd, {config.ssdModelPath}, "SSD", "ssd",
                  [&] { return mirovane::BodyDetectionSSD::create(config.ssdModelPath, common); }))
            return false;
    }
    if (!m_mtcnn && config.isModelWanted(AIConfig::faceMtcnnMask) &&
        !load(m_mtcnn, {config.mtcnnModel1Path, config.mtcnnModel2Path, config.mtcnnModel3Path}, "mtcnn",
              "mtcnn", [&] {
                  return mirovane::FaceDetectionMTCNN::create(config.mtcnnModel1Path, config.mtcnnModel2Path,
                                                              config.mtcnnModel3Path, common);
              }))
        return false;
    if (!m_bodyPose && config.isModelWanted(AIConfig::bodyPoseMask) &&
        !load(m_bodyPose, {config.bodyPoseModelPath}, "bodypose", "bodypose",
              [&] { return mirovane::BodyPoseClassify::create(config.bodyPoseModelPath, common); }))
        return false;
    if (!m_handup && config.isModelWanted(AIConfig::handupMask) &&
        !load(m_handup, {config.handupModelPath}, "handup", "handup",
              [&] { return mirovane::HandupClassify::create(config.handupModelPath, common); }))
        return false;
    if (!m_faceEmotion && config.isModelWanted(AIConfig::emotionMask) &&
        !load(m_faceEmotion, {config.faceEmotionModelPath}, "emotion", "faceEmotion",
              [&] { return mirovane::FaceEmotionClassify::create(config.faceEmotionModelPath, common); }))
        return false;
    m_caffeLoaded = true;
    return true;
}

bool ModelManager::initTFModel()
{
    m_tfLoaded = false;
    const AIConfig &config = AIConfig::instance();
    const std::string &common = config.modelConfigPath;

    if (!m_faceId && config.isModelWanted(AIConfig::faceIdMask) &&
        !load(m_faceId, {config.faceIdModelPath}, "faceid", "faceid",
              [&] { return mirovane::FaceIDDetection::create(config.faceIdModelPath, common); }))
        return false;
    if (!m_faceAttr && config.isModelWanted(AIConfig::faceAttrMask) &&
        !load(m_faceAttr, {config.faceAttrModelPath}, "faceAttr", "faceAttr",
              [&] { return mirovane::FaceAttrDetection::create(config.faceAttrModelPath, common); }))
        return false;
    m_tfLoaded = true;
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
