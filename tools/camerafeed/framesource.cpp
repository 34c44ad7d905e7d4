#include "framesource.h"

#include "democlass.h"

#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include <algorithm>

namespace {

std::string localName(const QString &path)
{
    return path.toLocal8Bit().toStdString();
}

class Camera : public FrameSource
{
public:
    explicit Camera(int number) : m_capture(number)
    {
        m_capture.set(cv::CAP_PROP_FRAME_WIDTH, 1920);
        m_capture.set(cv::CAP_PROP_FRAME_HEIGHT, 1080);
    }

    bool isOpen() const { return m_capture.isOpened(); }

    cv::Mat next() override
    {
        cv::Mat picture;
        m_capture.read(picture);
        return picture;
    }

private:
    cv::VideoCapture m_capture;
};

class Video : public FrameSource
{
public:
    explicit Video(const QString &path) : m_path(localName(path)), m_capture(m_path)
    {
        m_capture.read(m_next);
    }

    bool isOpen() const { return !m_next.empty(); }

    cv::Mat next() override
    {
        cv::Mat picture = m_next;
        m_next = cv::Mat();
        if (m_capture.read(m_next))
            return picture;
        // Not every container can be wound back, but every one can be opened again.
        m_capture.open(m_path);
        m_capture.read(m_next);
        return picture;
    }

private:
    std::string m_path;
    cv::VideoCapture m_capture;
    cv::Mat m_next;
};

class Pictures : public FrameSource
{
public:
    /// Picture files in the order of showing; those that can't be read are passed over.
    Pictures(const QStringList &files, int hold) : m_files(files), m_hold(hold) { advance(); }

    bool isOpen() const { return !m_picture.empty(); }

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
        if (m_files.size() == 1 && !m_picture.empty())
            return;
        for (int tries = 0; tries < m_files.size(); ++tries) {
            m_picture = cv::imread(localName(m_files[m_index]));
            m_index = (m_index + 1) % m_files.size();
            if (!m_picture.empty())
                return;
        }
        m_picture = cv::Mat();
    }

    QStringList m_files;
    int m_hold;
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

private:
    cv::Mat m_picture;
};

/// The number of a camera, or -1 when the source isn't one.
int cameraNumber(const QString &source)
{
    const QString device = QStringLiteral("/dev/video");
    bool isNumber = false;
    const int number = (source.startsWith(device) ? source.mid(device.size()) : source).toInt(&isNumber);
    return isNumber && number >= 0 ? number : -1;
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

std::unique_ptr<FrameSource> FrameSource::open(const QString &source, int hold, QString &error)
{
    const QFileInfo file(source);
    const int camera = cameraNumber(source);
    if (camera >= 0 && !file.isFile() && !file.isDir())
        return ifOpen(std::make_unique<Camera>(camera),
                      QStringLiteral("cannot open the camera %1").arg(source), error);
    if (!file.exists()) {
        error = QStringLiteral("%1 does not exist").arg(source);
        return nullptr;
    }
    if (file.isDir()) {
        const QString refusal = QStringLiteral("no readable picture in the folder %1").arg(source);
        return ifOpen(std::make_unique<Pictures>(picturesIn(source), hold), refusal, error);
    }
    if (cv::haveImageReader(localName(source)))
        return ifOpen(std::make_unique<Pictures>(QStringList{source}, hold),
                      QStringLiteral("cannot read the picture %1").arg(source), error);
    return ifOpen(std::make_unique<Video>(source),
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

cv::Mat letterboxed(const cv::Mat &picture, const cv::Size &size)
{
    cv::Mat result;
    if (picture.size() == size) {
        cv::cvtColor(picture, result, cv::COLOR_BGR2RGB);
        return result;
    }
    const double factor = std::min(double(size.width) / picture.cols, double(size.height) / picture.rows);
    const cv::Size fitted(std::clamp(cvRound(picture.cols * factor), 1, size.width),
                          std::clamp(cvRound(picture.rows * factor), 1, size.height));
    cv::Mat scaled;
    cv::resize(picture, scaled, fitted, 0, 0, factor < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    result = cv::Mat::zeros(size, CV_8UC3);
    const cv::Rect place((size.width - fitted.width) / 2, (size.height - fitted.height) / 2, fitted.width,
                         fitted.height);
    cv::cvtColor(scaled, result(place), cv::COLOR_BGR2RGB);
    return result;
}
