#include "framesource.h"

#include "address.h"
#include "democlass.h"
#include "livesource.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>

namespace {

std::string localName(const QString &path)
{
    return path.toLocal8Bit().toStdString();
}

class Video : public FrameSource
{
public:
    Video(const QString &path, bool once)
        : m_path(localName(path)), m_once(once), m_capture(m_path), m_rate(m_capture.get(cv::CAP_PROP_FPS))
    {
        m_capture.read(m_next);
    }

    bool isOpen() const { return !m_next.empty(); }
    bool ended() const override { return m_next.empty(); }
    double rate() const override { return m_rate >= 0.1 && m_rate <= 100 ? m_rate : 0; }

    cv::Mat next() override
    {
        cv::Mat picture = m_next;
        m_next = cv::Mat();
        if (m_capture.read(m_next) || m_once)
            return picture;
        // Not every container can be wound back, but every one can be opened again.
        m_capture.open(m_path);
        m_capture.read(m_next);
        return picture;
    }

private:
    std::string m_path;
    bool m_once;
    cv::VideoCapture m_capture;
    double m_rate;
    cv::Mat m_next;
};

class Pictures : public FrameSource
{
public:
    /// Picture files in the order of showing; those that can't be read are passed over.
    Pictures(const QStringList &files, int hold, bool once) : m_files(files), m_hold(hold), m_once(once)
    {
        advance();
    }

    bool isOpen() const { return !m_picture.empty(); }
    bool ended() const override { return m_picture.empty(); }

    cv::Mat next() override
    {
        if (m_shown++ < m_hold)
            return m_picture;
        advance();
        m_shown = 1;
        return m_picture;
    }

private:
    void advance()
    {
        if (m_files.size() == 1 && !m_picture.empty() && !m_once)
            return;
        m_picture = cv::Mat();
        for (int tries = 0; tries < m_files.size(); ++tries) {
            if (m_once && m_index == m_files.size())
                return;
            m_index %= m_files.size();
            m_picture = cv::imread(localName(m_files[m_index++]));
            if (!m_picture.empty())
                return;
        }
    }

    QStringList m_files;
    int m_hold;
    bool m_once;
    int m_index = 0;
    int m_shown = 0;
    cv::Mat m_picture;
};

class Demo : public FrameSource
{
public:
    explicit Demo(const QString &photoFolder) : m_class(photoFolder) {}

    QString error() const { return m_class.error(); }
    cv::Mat next() override { return m_class.frame(m_number++); }
    bool ended() const override { return false; }
    void skip(int pictures) override { m_number += pictures; }

private:
    DemoClass m_class;
    int m_number = 0;
};

class Still : public FrameSource
{
public:
    explicit Still(const cv::Mat &picture) : m_picture(picture) {}

    cv::Mat next() override { return m_picture; }
    bool ended() const override { return m_picture.empty(); }

private:
    cv::Mat m_picture;
};

/// True for a number, and for the path of a character device.
bool isDevice(const QString &source)
{
    bool isNumber = false;
    source.toUInt(&isNumber);
    const QFileInfo entry(source);
    return entry.exists() ? !entry.isFile() && !entry.isDir() : isNumber || source.startsWith("/dev/video");
}

QStringList picturesIn(const QString &folder)
{
    QStringList files;
    const QFileInfoList entries = QDir(folder).entryInfoList(QDir::Files | QDir::Readable, QDir::Name);
    for (const QFileInfo &entry : entries)
        if (cv::haveImageReader(localName(entry.filePath())))
            files.append(entry.filePath());
    return files;
}

template <class Source>
std::unique_ptr<FrameSource> ifOpen(std::unique_ptr<Source> source, const QString &refusal, QString &error)
{
    if (source->isOpen())
        return source;
    error = refusal;
    return nullptr;
}

} // namespace

std::unique_ptr<FrameSource> FrameSource::open(const QString &source, const Options &options, QString &error)
{
    const LiveSource::Wanted wanted{options.size, options.rate};
    if (address::isNetwork(source))
        return std::make_unique<LiveSource>(source, wanted);
    if (isDevice(source)) {
        if (!LiveSource::canOpen(source, error))
            return nullptr;
        return std::make_unique<LiveSource>(source, wanted);
    }
    const QFileInfo file(source);
    if (!file.exists()) {
        error = QStringLiteral("%1 does not exist").arg(source);
        return nullptr;
    }
    if (file.isDir()) {
        const QString refusal = QStringLiteral("no readable picture in the folder %1").arg(source);
        return ifOpen(std::make_unique<Pictures>(picturesIn(source), options.hold, options.once), refusal,
                      error);
    }
    if (cv::haveImageReader(localName(source)))
        return ifOpen(std::make_unique<Pictures>(QStringList{source}, options.hold, options.once),
                      QStringLiteral("cannot read the picture %1").arg(source), error);
    return ifOpen(std::make_unique<Video>(source, options.once),
                  QStringLiteral("%1 is neither a video nor a picture").arg(source), error);
}

std::unique_ptr<FrameSource> FrameSource::openDemo(const QString &photoFolder, QString &error)
{
    const QString folder = photoFolder.isEmpty() ? DemoClass::findPhotographs() : photoFolder;
    if (folder.isEmpty()) {
        error = QStringLiteral("the photographs of the package opencv-doc are not there");
        return nullptr;
    }
    auto demo = std::make_unique<Demo>(folder);
    error = demo->error();
    if (!error.isEmpty())
        return nullptr;
    return demo;
}

std::unique_ptr<FrameSource> FrameSource::still(std::unique_ptr<FrameSource> source)
{
    return std::make_unique<Still>(source->next());
}

cv::Mat fitted(const cv::Mat &picture, const cv::Size &size, Fit fit)
{
    cv::Mat result;
    if (picture.size() == size) {
        cv::cvtColor(picture, result, cv::COLOR_BGR2RGB);
        return result;
    }
    if (fit == Fit::Exact)
        return result;
    // The part of the picture that is shown, and how large.
    cv::Rect part({0, 0}, picture.size());
    cv::Size shown = size;
    const double factor = std::min(double(size.width) / picture.cols, double(size.height) / picture.rows);
    if (fit == Fit::Pad) {
        shown.width = std::clamp(cvRound(picture.cols * factor), 1, size.width);
        shown.height = std::clamp(cvRound(picture.rows * factor), 1, size.height);
    } else if (fit == Fit::Crop) {
        part.width = std::clamp(cvRound(double(picture.rows) * size.width / size.height), 1, picture.cols);
        part.height = std::clamp(cvRound(double(picture.cols) * size.height / size.width), 1, picture.rows);
        part.x = (picture.cols - part.width) / 2;
        part.y = (picture.rows - part.height) / 2;
    }
    cv::Mat scaled;
    cv::resize(picture(part), scaled, shown, 0, 0,
               shown.width < part.width ? cv::INTER_AREA : cv::INTER_LINEAR);
    result = cv::Mat::zeros(size, CV_8UC3);
    const cv::Rect place({(size.width - shown.width) / 2, (size.height - shown.height) / 2}, shown);
    cv::cvtColor(scaled, result(place), cv::COLOR_BGR2RGB);
    return result;
}
