#pragma once

#include "basemodel.h"
#include "mirovane/facedetectionmtcnn.h"

/// Finds the faces of a picture and cuts head crops out of it. See BaseModel.
class MTCNNModel : public BaseModel
{
    Q_OBJECT

public:
    MTCNNModel(const cv::Mat &image, std::shared_ptr<mirovane::FaceDetectionMTCNN> recogniser,
               bool withLandmarks);

    void emitFinished(bool ret) override;

    /// Widens every face by the padding of AIConfig and cuts it at the picture's edge. The landmarks
    /// stay. Does nothing before detect().
    void expandFaces();

    /// Centre of each face. Empty before detect().
    std::vector<cv::Point> faceCentres();

    /// One crop of 128 by 128 for each face whose eyes are apart, eye centre at half the width and 45 per
    /// cent of the height. A face whose eyes coincide has none, which shifts the crops behind it.
    /// @param eyeDistance distance of the eyes in the crop, in pixels
    std::vector<cv::Mat> cropHeads(int eyeDistance);

    /// One crop of size by size, turned so that the eyes are level. Empty before detect(), without
    /// landmarks, or when the eyes coincide.
    cv::Mat cropHeadMat(std::vector<cv::Point> &landmarks, int eyeDistance, int size, float xRatio,
                        float yRatio);

    /// For each face the sum of squared distances of its landmarks to those of a straight-on face.
    std::vector<int> landmarkOffsets();

    std::shared_ptr<mirovane::FaceDetectionMTCNN> m_recogniser;
    bool m_withLandmarks;
    std::vector<cv::Rect> m_rects;
    std::vector<float> m_scores;
    std::vector<std::vector<cv::Point>> m_landmarks; ///< in step with m_rects, if asked for

protected:
    void call() override;
    bool fits() const override;
    void discard() override;
    void conclude() override;
    QString subject() const override;

signals:
    void finished(bool ret, MTCNNModel *resultModel);
};
