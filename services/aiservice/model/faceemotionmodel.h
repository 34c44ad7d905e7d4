#pragma once

#include "basemodel.h"
#include "mirovane/faceemotionclassify.h"

/// Tells the emotion of one face picture. See BaseModel.
class FaceEmotionModel : public BaseModel
{
    Q_OBJECT

public:
    FaceEmotionModel(const cv::Mat &image, std::shared_ptr<mirovane::FaceEmotionClassify> recogniser);

    /// Whether the face smiles: label 1, with at least the smile threshold of AIConfig.
    bool isSmile() const;

    std::shared_ptr<mirovane::FaceEmotionClassify> m_recogniser;
    int m_label = 0;
    float m_score = 0;

protected:
    void call() override;
};
