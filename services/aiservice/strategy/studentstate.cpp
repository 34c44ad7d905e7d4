#include "studentstate.h"

#include "datamanager.h"
#include "oneframeidstragegy.h"
#include "rectutil.h"

namespace student_state {

QVector<StudentInfo> identify(const cv::Mat &frame, const std::vector<cv::Rect> &bodies, int frameNumber)
{
    OneFrameIdStragegy identification(frame, bodies);
    identification.run(frameNumber);
    return DataManager::instance()->getFoundStudents();
}

std::vector<cv::Rect> bodyRects(const QVector<StudentInfo> &students)
{
    std::vector<cv::Rect> rects;
    rects.reserve(students.size());
    for (const StudentInfo &student : students)
        rects.push_back(student.bodyRect);
    return rects;
}

QVariantMap entry(const StudentInfo &student, int state)
{
    QVariantMap map;
    map.insert(QStringLiteral("stuID"), student.stuID);
    map.insert(QStringLiteral("state"), state);
    rect_util::insert(map, student.bodyRect);
    return map;
}

} // namespace student_state
