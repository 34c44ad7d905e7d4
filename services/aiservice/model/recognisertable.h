#pragma once

#include <cstddef>
#include <iterator>
#include <string>

/// Which recogniser a row of the table is about.
enum class Recogniser
{
    Bodies,
    Faces,
    BodyPose,
    Handup,
    Emotion,
    FaceID,
    FaceAttr,
    Pose,
    PoseClass
};

/// When ModelManager loads a recogniser.
enum class LoadStage
{
    First,
    Second,
    Never ///< wanted or not, there is no factory
};

/// Where the files of the recognisers are, as full paths. AIConfig has them.
struct ModelPaths
{
    std::string mtcnnModel1Path;
    std::string mtcnnModel2Path;
    std::string mtcnnModel3Path;
    std::string faceIdModelPath;
    std::string faceAttrModelPath;
    std::string ssdModelPath;
    std::string cmuModelPath;
    std::string cmuSingleModelPath;
    std::string cmuPoseModelPath;
    std::string handupModelPath;
    std::string bodyPoseModelPath;
    std::string faceEmotionModelPath;
};

/// One of the files that a recogniser is made from.
struct ModelFile
{
    const char *iniKey; ///< in the group "AIService" of "aiconfig.ini"
    const char *defaultFile;
    std::string ModelPaths::*path;
};

/// All that the settings, the loading, the running and the log have to know of a recogniser.
struct RecogniserRow
{
    static constexpr std::size_t mostFiles = 3;

    Recogniser recogniser;
    unsigned mask;          ///< in AIConfig::modelLoadFlag
    const char *requestKey; ///< by which a client wants it
    LoadStage stage;
    bool takesTurns;      ///< one call at a time; else a single analysis uses it
    const char *fileTag;  ///< for the log: of a missing file
    const char *name;     ///< for the log: of the loading
    const char *callTag;  ///< for the log: of a call that failed
    const char *timeText; ///< for the log: before the milliseconds of a call
    ModelFile files[mostFiles];
};

/// One row for each, in the order in which they are loaded.
// clang-format off
inline constexpr RecogniserRow recogniserTable[] = {
    {Recogniser::Bodies, 0x40, "ssd", LoadStage::First, true, "SSD", "ssd", "ssd", "ssd time: ",
     {{"SSD_model", "det_body_ssd_v1.0.5.bin", &ModelPaths::ssdModelPath}}},
    {Recogniser::Faces, 0x1, "faceMtcnn", LoadStage::First, true, "mtcnn", "mtcnn", "mtcnn", " time: ",
     {{"mtcnn_model1", "det_face_1_v2.0.0.bin", &ModelPaths::mtcnnModel1Path},
      {"mtcnn_model2", "det_face_2_v2.0.0.bin", &ModelPaths::mtcnnModel2Path},
      {"mtcnn_model3", "det_face_3_v2.0.0.bin", &ModelPaths::mtcnnModel3Path}}},
    {Recogniser::BodyPose, 0x1000, "bodypose", LoadStage::First, false, "bodypose", "bodypose", "bodypose",
     "ssd pose time: ",
     {{"body_pose_model", "cls_body_pose_v1.0.0.bin", &ModelPaths::bodyPoseModelPath}}},
    {Recogniser::Handup, 0x200000, "handup", LoadStage::First, true, "handup", "handup", "handup",
     "handup time: ",
     {{"handup_model", "cls_handup_v3.0.1.bin", &ModelPaths::handupModelPath}}},
    {Recogniser::Emotion, 0x40000, "emotion", LoadStage::First, true, "emotion", "faceEmotion", "faceemotion",
     "faceemotion_time: ",
     {{"face_emotion_model", "cls_face_emotion_v2.0.0.bin", &ModelPaths::faceEmotionModelPath}}},
    {Recogniser::FaceID, 0x8, "faceid", LoadStage::Second, true, "faceid", "faceid", "faceid", " time: ",
     {{"faceID_model", "det_face_id_v1.0.10.pb", &ModelPaths::faceIdModelPath}}},
    {Recogniser::FaceAttr, 0x1000000, "faceAttr", LoadStage::Second, true, "faceAttr", "faceAttr", "faceattr",
     "faceattr_time: ",
     {{"faceAttr_model", "cls_face_attr_v1.0.0.pb", &ModelPaths::faceAttrModelPath}}},
    {Recogniser::Pose, 0x200, "cmu", LoadStage::Never, false, "", "", "cmu", "cmutime: ",
     {{"CMU_model", "det_pose_cmu_v1.0.0.trt", &ModelPaths::cmuModelPath},
      {"CMUSingle_model", "det_pose_cmu_176_136.trt", &ModelPaths::cmuSingleModelPath}}},
    {Recogniser::PoseClass, 0x8000, "cmuPose", LoadStage::Never, false, "", "", "cmupose", "ssd pose time: ",
     {{"CMU_pose_model", "cls_pose_cmu.bin", &ModelPaths::cmuPoseModelPath}}},
};
// clang-format on

constexpr const RecogniserRow &rowOf(Recogniser recogniser)
{
    const RecogniserRow *row = recogniserTable;
    while (row->recogniser != recogniser)
        ++row;
    return *row;
}

/// All that can be loaded.
constexpr unsigned loadableMasks()
{
    unsigned masks = 0;
    for (const RecogniserRow &row : recogniserTable)
        masks |= row.stage == LoadStage::Never ? 0 : row.mask;
    return masks;
}
static_assert(loadableMasks() == 0x1241049, "stores and clients know these masks");
