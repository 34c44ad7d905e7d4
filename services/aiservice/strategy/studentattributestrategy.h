#pragma once

#include "basestrategy.h"

/**
 * The row of every student in the class room, and who wears glasses, as event 1017. Finds nobody itself:
 * works on the faces of the students that the last identification has found. See BaseStrategy for
 * threads and life.
 */
class StudentAttributeStrategy : public BaseStrategy
{
    Q_OBJECT

public:
    explicit StudentAttributeStrategy(const QString &requestID);

    void handleFrame(const cv::Mat &frame) override;
};
