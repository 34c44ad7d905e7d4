#include "classroom.h"

#include "picture.h"

namespace classroom {

cv::Mat frame()
{
    return {cv::Size(640, 360), CV_8UC3, cv::Scalar(90, 120, 150)};
}

QByteArray faceFile()
{
    return picture::jpegOf(picture::toDataText(cv::Mat(128, 128, CV_8UC3, cv::Scalar(40, 90, 200))));
}

QVariantMap gallery()
{
    const auto face = picture::toDataText(faceFile());
    const auto entry = [&face](int gid, const QString &student, int x) {
        return QVariantMap{{"gid", gid},      {"stuID", student}, {"faceImg", face},
                           {"showImg", face}, {"x", x},           {"y", 100},
                           {"width", 60},     {"height", 60},     {"isDetected", !student.isEmpty()}};
    };
    return {{"image", picture::toDataText(frame())},
            {"galleries", QVariantList{entry(0, "anna", 100), entry(1, "", 300)}}};
}

QVariantList answer(const QVariantMap &request)
{
    const auto command = request["req_data"].toMap();
    const auto code = command["command_code"].toUInt();
    const auto id = request["req_id"].toString();
    QVariantList messages;
    if (code == 1021)
        messages.append(FakeService::event(1011, gallery(), id));
    if (code == 1026)
        messages.append(FakeService::event(
            1021,
            {{"bestGalleries",
              QVariantList{QVariantMap{
                  {"stuID", "anna"}, {"bestFaceImg", picture::toDataText(faceFile())}, {"score", 93.5}}}}},
            id));
    if (code == 1022) {
        QVariantList enrolled;
        for (const auto &entry : command["data"].toMap()["galleries"].toList()) {
            if (entry.toMap()["stuID"] != "refused")
                enrolled.append(QVariantMap{{"stuID", entry.toMap()["stuID"]}});
        }
        messages.append(FakeService::event(1018, {{"successList", enrolled}}, id));
    }
    if (code == 1030)
        messages.append(FakeService::event(1013, {{"handupStudents", QVariantList()}}, id));
    messages.append(FakeService::reply(0, {}, QVariantMap{{"command_code", code}}));
    return messages;
}

} // namespace classroom
