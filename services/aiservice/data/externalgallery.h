#pragma once

#include <opencv2/core.hpp>

#include <QMap>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QVector>

#include <atomic>
#include <memory>
#include <mutex>

/**
 * A matrix that one thread replaces while others read it. A reader gets the old or the new matrix, each of
 * them whole; what it got stays valid, and its elements are read-only. The lock is a leaf.
 */
class SharedMat
{
public:
    operator cv::Mat() const
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        return m_mat;
    }

    SharedMat &operator=(const cv::Mat &mat)
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        m_mat = mat;
        return *this;
    }

private:
    mutable std::mutex m_mutex;
    cv::Mat m_mat;
};

/// A reference face of somebody who is not, or not yet, a registered student. The fields may be read on any
/// thread while the gallery changes them.
struct ExternalGalleryItem
{
    /// The id that the client gave; does not change once the item is in the gallery.
    QString stuID;
    /// Feature of the face: a row of floating point numbers. Take a copy once and use that.
    SharedMat feature;
    /// Whether the item takes part in matching: false while a registered student has the id.
    std::atomic<bool> valid{true};
};

/**
 * Reference faces that the client supplied, by id: one item each, kept until clear().
 *
 * Threads: every operation may be called from any thread and holds one lock for its length. Ownership:
 * items are shared. A list that was handed out keeps its items alive, and a later change of flag or feature
 * shows in it. Nothing fails otherwise than by a warning for an unknown id.
 */
class ExternalGallery : public QObject
{
    Q_OBJECT

public:
    static ExternalGallery *instance();

    /// Adds a valid item with a deep copy of the feature, or replaces the feature of the id's item, whose
    /// flag stays. An empty id or feature does nothing.
    void addFaceFeature(const QString &stuID, cv::Mat &feature);
    void setFaceFeature(const QString &stuID, bool valid);
    void disableFaceFeature(const QString &stuID);
    void enableFaceFeature(const QString &stuID);
    /// The valid items, in the order of their ids.
    QVector<std::shared_ptr<ExternalGalleryItem>> getValidFaceFeatures();
    void clear();

private:
    ExternalGallery() = default;

    QMutex m_mutex;
    QMap<QString, std::shared_ptr<ExternalGalleryItem>> m_items;
};
