#include "aiconfig.h"

#include <QCoreApplication>
#include <QSettings>

namespace {

AIConfig config;

#ifdef Q_OS_WIN
const QString modelFolder = QStringLiteral("\\model");
const QString configFile = QStringLiteral("\\model\\aiconfig.ini");
#else
const QString modelFolder = QStringLiteral("/model");
const QString configFile = QStringLiteral("/model/aiconfig.ini");
#endif

} // namespace

AIConfig &AIConfig::instance()
{
    return config;
}

void AIConfig::load()
{
    const QString folder = QCoreApplication::applicationDirPath();
    QSettings settings(folder + configFile, QSettings::IniFormat);
    settings.setIniCodec("utf-8");

    settings.beginGroup(QStringLiteral("AIService"));
    modelDir = QDir(settings.value(QStringLiteral("modelpath"), folder + modelFolder).toString());
    const auto path = [&](const char *key, const char *fallback) {
        const QString file = settings.value(QLatin1String(key), QLatin1String(fallback)).toString();
        return modelDir.filePath(file).toStdString();
    };
    // One key feeds both configuration paths; only their defaults differ.
    modelConfigPath = path("model_config", "model-config.ini");
    cmuConfigPath = path("model_config", "cmu.ini");
    mtcnnModel1Path = path("mtcnn_model1", "det_face_1_v2.0.0.bin");
    mtcnnModel2Path = path("mtcnn_model2", "det_face_2_v2.0.0.bin");
    mtcnnModel3Path = path("mtcnn_model3", "det_face_3_v2.0.0.bin");
    faceIdModelPath = path("faceID_model", "det_face_id_v1.0.10.pb");
    faceAttrModelPath = path("faceAttr_model", "cls_face_attr_v1.0.0.pb");
    ssdModelPath = path("SSD_model", "det_body_ssd_v1.0.5.bin");
    cmuModelPath = path("CMU_model", "det_pose_cmu_v1.0.0.trt");
    cmuSingleModelPath = path("CMUSingle_model", "det_pose_cmu_176_136.trt");
    cmuPoseModelPath = path("CMU_pose_model", "cls_pose_cmu.bin");
    bodyPoseModelPath = path("body_pose_model", "cls_body_pose_v1.0.0.bin");
    handupModelPath = path("handup_model", "cls_handup_v3.0.1.bin");
    faceEmotionModelPath = path("face_emotion_model", "cls_face_emotion_v2.0.0.bin");
    colorDefinePath = path("colorDefine", "color.json");
    keepLogDays = settings.value(QStringLiteral("keepLogDays"), 0).toInt();
    settings.endGroup();

    settings.beginGroup(QStringLiteral("AIConfig"));
    fetchGalleryThre = settings.value(QStringLiteral("fetchGalleryThre"), 0.35).toDouble();
    detectGalleryThre = settings.value(QStringLiteral("detectGalleryThre"), 0.43).toDouble();
    smileThre = static_cast<float>(settings.value(QStringLiteral("smileThre"), 0.75).toDouble());
    settings.endGroup();
}

void AIConfig::setModelFlags(const QVariantMap &params)
{
    const auto addIfTrue = [&](const char *key, unsigned mask) {
        if (params.value(QLatin1String(key)).toBool())
            modelLoadFlag |= mask;
    };
    addIfTrue("faceMtcnn", faceMtcnnMask);
    addIfTrue("faceid", faceIdMask);
    addIfTrue("ssd", ssdMask);
    addIfTrue("bodypose", bodyPoseMask);
    addIfTrue("cmu", cmuMask);
    addIfTrue("cmuPose", cmuPoseMask);
    addIfTrue("faceAttr", faceAttrMask);
    addIfTrue("handup", handupMask);
    addIfTrue("emotion", emotionMask);
}

QString AIConfig::identify() const
{
    QMutexLocker locker(&m_identifyLock);
    return m_identify;
}

void AIConfig::setIdentify(const QString &identify)
{
    QMutexLocker locker(&m_identifyLock);
    m_identify = identify;
}
