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
    for (const RecogniserRow &row : recogniserTable) {
        for (const ModelFile &file : row.files) {
            if (file.path)
                this->*file.path = path(file.iniKey, file.defaultFile);
        }
    }
    colorDefinePath = path("colorDefine", "color.json");
    keepLogDays = settings.value(QStringLiteral("keepLogDays"), 0).toInt();
    settings.endGroup();

    fetchGalleryThre = settings.value(QStringLiteral("AIConfig/fetchGalleryThre"), 0.35).toDouble();
    detectGalleryThre = settings.value(QStringLiteral("AIConfig/detectGalleryThre"), 0.43).toDouble();
    smileThre = static_cast<float>(settings.value(QStringLiteral("AIConfig/smileThre"), 0.75).toDouble());
}

void AIConfig::setModelFlags(const QVariantMap &params)
{
    for (const RecogniserRow &row : recogniserTable) {
        if (params.value(QLatin1String(row.requestKey)).toBool())
            modelLoadFlag |= row.mask;
    }
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
