#include "studentattributestrategy.h"

#include "datamanager.h"
#include "modelmanager.h"
#include "protocol.h"
#include "rectutil.h"

StudentAttributeStrategy::StudentAttributeStrategy(const QString &requestID)
    : BaseStrategy(QStringLiteral("AttributeStrategy"), requestID)
{
}

void StudentAttributeStrategy::handleFrame(const cv::Mat &frame)
{
    DataManager *students = DataManager::instance();
    students->sortStudentRows();
    for (StudentInfo student : students->getFoundStudents()) {
        const cv::Rect face = rect_util::clipped(student.faceRect, frame.size());
        if (face.empty())
            continue;
        const auto model = ModelManager::instance().createFaceAttrModel(frame, face);
        if (!model->detect())
            continue;
        student.glass = model->wearsGlasses();
        students->updateStudent(student);
    }

    QVariantList attributes;
    for (const StudentInfo &student : students->getAllStudents()) {
        attributes.append(QVariantMap{
            {QStringLiteral("stuID"), student.stuID},
            {QStringLiteral("clothColor"), QString::fromStdString(student.clothColor)},
            {QStringLiteral("row"), student.row},
            {QStringLiteral("glass"), student.glass},
        });
    }
    emit serviceMessgeSignal(code(ai::Event::Attributes),
                             QVariantMap{{QStringLiteral("studentsAttribute"), attributes}}, m_requestID);
}
