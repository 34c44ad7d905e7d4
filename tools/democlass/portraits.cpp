#include "portraits.h"

#include <QString>
#include <QStringList>

namespace {

/// A polygon as text: "x,y x,y ...".
std::vector<cv::Point> points(const char *text)
{
    std::vector<cv::Point> result;
    const QStringList pairs = QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &pair : pairs)
        result.emplace_back(pair.section(QLatin1Char(','), 0, 0).toInt(),
                            pair.section(QLatin1Char(','), 1, 1).toInt());
    return result;
}

std::vector<Portrait> measuredPortraits()
{
    std::vector<Portrait> all;
    {
        Portrait person;
        person.name = "Gustav";
        person.file = "inpaint_result.jpg";
        person.outline = points("278,337 283,310 290,290 303,275 304,262 300,255 294,245 290,236 "
                                "287,226 284,215 285,200 292,187 302,180 312,175 325,173 340,178 "
                                "348,186 355,200 359,215 358,225 359,238 350,243 346,245 360,253 "
                                "380,259 385,261 400,276 404,290 411,305 419,320 426,337");
        person.face = cv::Rect(289, 205, 50, 60);
        person.faceWidth = 66;
        person.clothes = cv::Scalar(235, 205, 180);
        all.push_back(person);
    }
    {
        Portrait person;
        person.name = "Flora";
        person.file = "inpaint_basics.jpg";
        person.outline = points("246,168 250,151 270,147 285,139 266,136 253,126 251,120 263,116 259,98 "
                                "263,86 273,73 290,66 309,67 324,81 331,95 334,106 341,113 342,125 "
                                "339,140 337,168");
        person.face = cv::Rect(285, 86, 39, 53);
        person.faceWidth = 62;
        person.smiling = true;
        person.clothes = cv::Scalar(66, 68, 78);
        person.gain = cv::Scalar(1.15, 1.32, 1.55);
        all.push_back(person);
    }
    {
        Portrait person;
        person.name = "Henry";
        person.file = "inpaint_basics.jpg";
        person.outline = points("346,168 346,108 366,96 369,84 366,75 363,60 359,40 357,20 366,10 380,6 "
                                "395,7 402,14 406,35 404,50 401,58 400,70 420,74 436,70 449,68 449,168");
        person.face = cv::Rect(359, 20, 43, 58);
        person.faceWidth = 64;
        person.clothes = cv::Scalar(175, 190, 200);
        person.gain = cv::Scalar(1.1, 1.25, 1.48);
        all.push_back(person);
    }
    {
        Portrait person;
        person.name = "Dora";
        person.file = "05.jpg";
        person.outline = points("185,462 150,430 140,380 135,340 112,310 88,250 78,150 92,80 130,20 "
                                "170,2 380,2 430,60 450,150 450,290 470,330 440,400 330,440 300,462");
        person.face = cv::Rect(130, 100, 265, 340);
        person.faceWidth = 96;
        person.hair = points("98,60 110,20 180,-50 270,-75 350,-50 410,10 426,50 380,14 260,8 150,14");
        person.hairColour = cv::Scalar(20, 34, 52);
        person.torso = points("-130,900 -120,620 -60,520 60,455 150,420 350,420 450,450 570,500 640,600 "
                              "660,900");
        person.clothes = cv::Scalar(60, 78, 70);
        person.gain = cv::Scalar(2.2, 1.45, 1.3);
        all.push_back(person);
    }
    {
        Portrait person;
        person.name = "Emma";
        person.file = "12.jpg";
        person.outline = points("2,460 2,412 50,402 115,397 150,372 190,338 203,324 190,282 180,240 "
                                "168,200 152,172 145,120 140,60 142,22 483,22 498,90 502,120 493,180 "
                                "488,220 473,250 468,300 460,340 480,367 510,402 510,460");
        person.face = cv::Rect(165, 50, 265, 312);
        person.faceWidth = 98;
        person.hair =
            points("141,60 150,-10 210,-70 310,-95 410,-70 470,-15 490,60 440,30 380,34 300,28 220,30 "
                   "165,42");
        person.hairColour = cv::Scalar(92, 130, 160);
        person.torso = points("-60,800 -50,520 0,440 60,400 460,400 520,430 570,520 580,800");
        person.clothes = cv::Scalar(48, 96, 130);
        all.push_back(person);
    }
    {
        Portrait person;
        person.name = "Adrian";
        person.file = "230501201_1.jpg";
        person.outline = points("0,573 60,548 110,551 150,563 200,551 215,532 201,500 190,440 184,360 "
                                "183,270 198,190 218,142 247,108 300,90 350,84 400,96 448,120 486,153 "
                                "501,200 502,300 518,322 532,345 529,380 512,438 498,449 486,450 "
                                "478,530 518,562 553,593 583,604 583,823 0,823");
        person.face = cv::Rect(185, 240, 305, 355);
        person.faceWidth = 128;
        person.clothes = cv::Scalar(110, 140, 155);
        person.gain = cv::Scalar(0.95, 0.95, 0.95);
        all.push_back(person);
    }
    {
        Portrait person;
        person.name = "Carl";
        person.file = "example.jpg";
        person.outline = points("75,575 74,520 62,480 47,440 40,403 22,398 14,340 13,280 17,230 9,190 "
                                "12,150 24,110 34,70 63,38 100,16 150,9 220,7 268,24 307,54 340,92 "
                                "361,112 368,160 368,220 362,280 366,330 358,403 340,408 328,460 "
                                "310,490 308,530 315,575");
        person.face = cv::Rect(42, 190, 300, 360);
        person.faceWidth = 116;
        person.glasses = true;
        person.torso = points("-190,1000 -170,720 -100,630 40,570 90,535 305,535 350,570 500,630 "
                              "570,720 590,1000");
        person.clothes = cv::Scalar(120, 70, 48);
        all.push_back(person);
    }
    {
        Portrait person;
        person.name = "Bruno";
        person.file = "227943776_1.jpg";
        person.outline = points("2,432 2,402 17,372 42,338 101,305 151,275 170,270 168,247 154,220 "
                                "148,190 148,150 146,125 151,95 162,71 177,54 201,44 216,29 235,33 "
                                "259,36 278,48 298,67 307,90 309,130 315,155 310,184 297,205 287,210 "
                                "287,270 319,288 349,306 386,327 418,347 432,372 432,432");
        person.face = cv::Rect(147, 95, 145, 192);
        person.faceWidth = 118;
        person.smiling = true;
        person.glasses = true;
        person.clothes = cv::Scalar(225, 228, 232);
        person.gain = cv::Scalar(0.93, 0.93, 0.93);
        person.paintedGlasses = points("171,166 237,170");
        all.push_back(person);
    }
    return all;
}

} // namespace

const std::vector<Portrait> &portraits()
{
    static const std::vector<Portrait> all = measuredPortraits();
    return all;
}

const char *handFile()
{
    return "handSrc.jpg";
}

const std::vector<cv::Point> &handOutline()
{
    static const std::vector<cv::Point> outline =
        points("0,132 50,99 110,70 150,54 190,27 225,12 245,2 268,2 268,25 250,48 215,80 185,98 167,110 "
               "166,132 185,148 250,152 300,151 330,142 400,130 450,121 484,124 493,135 488,153 460,165 "
               "420,170 370,183 325,196 315,208 322,226 400,232 500,235 538,242 548,258 538,273 500,279 "
               "400,282 322,283 322,291 400,292 500,303 518,307 528,320 523,338 500,345 400,344 303,339 "
               "293,345 291,358 310,370 350,387 400,402 428,417 441,435 433,448 410,451 370,438 310,423 "
               "250,407 160,403 80,393 30,380 0,378");
    return outline;
}
