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

/// Made by its factory, which some classes don't have.
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
template <>
mirovane::PoseDetectionCMU *create(const std::vector<std::string> &, const std::string &)
{
    return nullptr;
}
template <>
mirovane::PoseClassifyCMU *create(const std::vector<std::string> &, const std::string &)
{
    return nullptr;
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
    bool isLoaded = false;
    forEach([&](Recogniser recogniser, auto &member) {
        if (recogniser == row.recogniser)
            isLoaded = load(row, member);
    });
    return isLoaded;
}

/// Creates one recogniser unless it is there already. False, with a line in the log, if a model file is
/// missing or the library refuses.
template <class Library>
bool ModelManager::load(const RecogniserRow &row, std::shared_ptr<Library> &member)
{
    if (member)
        return true;
    const std::vector<std::string> files = pathsOf(row);
    if (row.recogniser == Recogniser::Bodies)
        qInfo().noquote().nospace() << "ssd create,path: " << QString::fromStdString(files[0]);
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
