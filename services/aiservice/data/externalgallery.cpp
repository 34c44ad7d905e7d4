#include "externalgallery.h"

#include <QDebug>

ExternalGallery *ExternalGallery::instance()
{
    static ExternalGallery gallery;
    return &gallery;
}

void ExternalGallery::addFaceFeature(const QString &stuID, cv::Mat &feature)
{
    if (stuID.isEmpty() || feature.empty())
        return;

    QMutexLocker locker(&m_mutex);
    std::shared_ptr<ExternalGalleryItem> &item = m_items[stuID];
    if (item) {
        item->feature = feature.clone();
        qInfo().noquote().nospace() << "[ExternalGallery] update student: " << stuID;
        return;
    }
    item = std::make_shared<ExternalGalleryItem>();
    item->stuID = stuID;
    item->feature = feature.clone();
    qInfo().noquote().nospace() << "[ExternalGallery] add student: " << stuID;
}

void ExternalGallery::setFaceFeature(const QString &stuID, bool valid)
{
    QMutexLocker locker(&m_mutex);
    const std::shared_ptr<ExternalGalleryItem> item = m_items.value(stuID);
    if (!item) {
        qWarning().noquote().nospace() << "[ExternalGallery] can't find student: " << stuID;
        return;
    }
    item->valid.store(valid, std::memory_order_relaxed);
    qInfo().noquote().nospace() << "[ExternalGallery] stuID: " << stuID << " valid: " << valid;
}

void ExternalGallery::disableFaceFeature(const QString &stuID)
{
    setFaceFeature(stuID, false);
}

void ExternalGallery::enableFaceFeature(const QString &stuID)
{
    setFaceFeature(stuID, true);
}

QVector<std::shared_ptr<ExternalGalleryItem>> ExternalGallery::getValidFaceFeatures()
{
    QMutexLocker locker(&m_mutex);
    QVector<std::shared_ptr<ExternalGalleryItem>> result;
    for (const auto &item : qAsConst(m_items)) {
        if (item->valid.load(std::memory_order_relaxed))
            result.append(item);
    }
    return result;
}

void ExternalGallery::clear()
{
    QMutexLocker locker(&m_mutex);
    m_items.clear();
}
