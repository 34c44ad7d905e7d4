#pragma once

#include "basemodel.h"
#include "mirovane/faceiddetection.h"

/// One action on the recogniser's face gallery. The picture is a head crop of 128 by 128 pixels; for
/// Remove and Clear it isn't looked at. See BaseModel.
class FaceIDModel : public BaseModel
{
    Q_OBJECT

public:
    /// What detect() does and when it is true.
    enum Action
    {
        Register = 1,           ///< enrols under a new id into m_id; id 0 or more
        RegisterAndExtract = 2, ///< the same, then fills m_feature; id 0 or more
        RegisterAs = 3,         ///< enrols under m_id; id 0 or more
        Identify = 4,           ///< best entry into m_id; result 0
        Extract = 5,            ///< fills m_feature; result 0 or -1
        IdentifyAll = 6,        ///< fills m_id, m_feature, m_candidates and m_scores; result 0
        Remove = 7,             ///< removes m_id; result 0
        Clear = 8,              ///< empties the gallery; always
    };

    FaceIDModel(const cv::Mat &image, std::shared_ptr<mirovane::FaceIDDetection> recogniser, int action,
                int id);

    bool detect() override;
    void emitFinished(bool ret) override;

    std::shared_ptr<mirovane::FaceIDDetection> m_recogniser;
    int m_action;
    int m_id; ///< in and out
    cv::Mat m_feature;
    std::vector<int> m_candidates; ///< read by nobody; kept on purpose
    std::vector<double> m_scores;  ///< one similarity for each id of the gallery, indexed by the id

protected:
    void call() override;
    QString subject() const override;

signals:
    void finished(bool ret, FaceIDModel *resultModel);

private:
    bool runAction();
    bool registerFaceID();

    bool m_succeeded = false;
};
