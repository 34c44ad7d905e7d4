#include "codes.h"

#include <QStringList>

namespace codes {

QString eventWord(uint code)
{
    static const QMap<uint, QString> words{
        {1011, "faces"},        {1012, "attention"}, {1013, "hands"},      {1014, "followed"},
        {1015, "game-regions"}, {1016, "game"},      {1017, "attributes"}, {1018, "registered"},
        {1019, "smile"},        {1020, "recording"}, {1021, "students"},   {1022, "video"},
    };
    return words.value(code, QString::number(code));
}

const QMap<QString, uint> &commandWords()
{
    static const QMap<QString, uint> words{
        {"fetch-faces", 1021},     {"register", 1022},        {"replace-face", 1023},   {"rename", 1024},
        {"delete", 1025},          {"students", 1026},        {"reset", 1028},          {"start-hands", 1030},
        {"stop-hands", 1031},      {"start-attention", 1032}, {"stop-attention", 1033}, {"follow", 1034},
        {"stop-following", 1035},  {"start-game", 1036},      {"stop-game", 1037},      {"attributes", 1038},
        {"start-recording", 1039}, {"stop-recording", 1040},
    };
    return words;
}

QString errorWords(int error)
{
    static const QMap<int, QString> words{
        {0, "success"},
        {-2, "a recogniser or something inside failed"},
        {-9, "no camera"},
        {-10, "unknown command"},
        {-12, "parameters missing or unusable"},
        {-15, "wrong state"},
        {-1002, "the analysis could not be made"},
        {-1003, "no such student, or no place is known of him"},
    };
    return words.value(error, QStringLiteral("error %1").arg(error));
}

const QList<Analysis> &analyses()
{
    static const QList<Analysis> all{
        {"hands", StartHands, Hands, {"ssd", "faceMtcnn", "faceid", "handup"}},
        {"attention", StartAttention, Attention, {"ssd", "faceMtcnn", "faceid", "bodypose"}},
    };
    return all;
}

const QStringList &recognisers()
{
    static const QStringList keys{"faceMtcnn", "faceid",   "ssd", "bodypose", "handup",
                                  "emotion",   "faceAttr", "cmu", "cmuPose"};
    return keys;
}

} // namespace codes
