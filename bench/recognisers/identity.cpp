#include "measure.h"
#include "mtcnnmodel.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>

namespace {

/// From here on the service takes a face for a student, and from there on for sure.
constexpr double detectScore = 0.43;
constexpr double sureScore = 0.8;
constexpr double nearCosine = 0.35;

/// A photograph's face as the service cuts it out.
struct Head
{
    size_t person = 0;
    cv::Mat crop;
    cv::Mat feature;
    std::vector<double> scores; ///< against the head of that place in the list
};

struct Count
{
    int hits = 0;
    int all = 0;

    void operator()(bool hit)
    {
        hits += hit ? 1 : 0;
        ++all;
    }
    /// A dash when there was nothing to count.
    std::string percent(int digits) const
    {
        char text[32] = "-";
        if (all > 0)
            std::snprintf(text, sizeof text, "%.*f", digits, 100.0 * hits / all);
        return text;
    }
};

/// A picture with the face that is asked for: the one about a place, or the largest.
struct Portrait
{
    cv::Mat picture;
    std::optional<cv::Point2d> place;
};

Portrait portraitOf(const Photograph &photograph)
{
    if (photograph.marks.empty())
        return {photograph.picture, {}};
    const auto &mark = photograph.marks.front();
    return {photograph.picture, (mark.leftEye + mark.rightEye) / 2};
}

/// The portrait in the middle of a full frame, scaled so that a face of that eye distance gets the width.
Portrait framed(const Portrait &portrait, double eyes, double width, std::mt19937 &random)
{
    const double scale = width / (faceWidth * eyes);
    auto picture = resized(portrait.picture, scale);
    auto frame = emptyRoom(random);
    picture = picture(cv::Rect({}, picture.size()) & cv::Rect({}, frame.size()));
    const cv::Point corner((frame.cols - picture.cols) / 2, (frame.rows - picture.rows) / 2);
    picture.copyTo(frame({corner, picture.size()}));
    if (!portrait.place)
        return {frame, {}};
    return {frame, *portrait.place * scale + cv::Point2d(corner)};
}

/// The face that is asked for as the service cuts it out, and its eye distance. Empty when it isn't found.
cv::Mat headOf(const Recognisers &recognisers, const Portrait &portrait, double *eyes)
{
    MTCNNModel model(portrait.picture, recognisers.faces, true);
    model.detect();
    const auto crops = model.cropHeads(40);
    cv::Mat best;
    int bestWidth = 0;
    for (size_t i = 0; i < crops.size(); ++i) {
        const bool asked = !portrait.place || model.m_rects[i].contains(cv::Point(*portrait.place));
        if (asked && model.m_rects[i].width > bestWidth) {
            bestWidth = model.m_rects[i].width;
            best = crops[i];
            *eyes = cv::norm(model.m_landmarks[i][1] - model.m_landmarks[i][0]);
        }
    }
    return best;
}

/// The best of some heads for one that is asked.
struct Best
{
    size_t person = 0;
    double score = 0;
};

void printRow(const std::vector<Head> &heads, size_t people, const char *width, size_t asked)
{
    std::vector<std::vector<size_t>> of(people);
    for (size_t i = 0; i < heads.size(); ++i)
        of[heads[i].person].push_back(i);

    Count right, rightDetected, wrong, wrongDetected, stranger, strangerDetected, sameCosine, otherCosine;
    std::vector<double> same;
    for (size_t i = 0; i < heads.size(); ++i) {
        const size_t own = heads[i].person;
        for (size_t j = 0; j < heads.size(); ++j) {
            if (i == j)
                continue;
            auto &near = heads[j].person == own ? sameCosine : otherCosine;
            near(heads[i].feature.dot(heads[j].feature) >= nearCosine);
        }
        // One photograph of everybody else is enrolled, another one for each photograph of his own.
        const size_t rounds = std::max<size_t>(of[own].size(), 2);
        for (size_t round = 0; round < rounds; ++round) {
            Best best;
            for (size_t person = 0; person < people; ++person) {
                if (person == own || of[person].empty())
                    continue;
                const double score = heads[i].scores[of[person][(round + person) % of[person].size()]];
                if (score > best.score)
                    best = {person, score};
            }
            stranger(best.score >= sureScore);
            strangerDetected(best.score >= detectScore);
            if (of[own].size() < 2 || of[own][round] == i)
                continue;
            const double score = heads[i].scores[of[own][round]];
            same.push_back(score);
            right(score > best.score && score >= sureScore);
            rightDetected(score > best.score && score >= detectScore);
            wrong(best.score >= score && best.score >= sureScore);
            wrongDetected(best.score >= score && best.score >= detectScore);
        }
    }
    const auto two = [](const Count &sure, const Count &detected) {
        return sure.percent(1) + " / " + detected.percent(1);
    };
    std::printf("| %s | %zu of %zu | %s | %d / %d of %d | %s | %.2f / %.2f | %s / %s |\n", width,
                heads.size(), asked, two(right, rightDetected).c_str(), wrong.hits, wrongDetected.hits,
                wrong.all, two(stranger, strangerDetected).c_str(), percentile(same, 0.05),
                percentile(same, 0.5), sameCosine.percent(1).c_str(), otherCosine.percent(2).c_str());
}

} // namespace

void measureIdentity(const Recognisers &recognisers, const std::vector<Person> &people)
{
    size_t asked = 0;
    for (const auto &person : people)
        asked += person.photographs.size();
    if (people.size() < 2)
        return;
    std::printf(
        "\n### The same person in another photograph, one photograph of each of %zu people enrolled\n\n"
        "| face width | faces found | right at 0.8 / 0.43 %% | wrong name at 0.8 / 0.43 | stranger taken for "
        "somebody at 0.8 / 0.43 %% | own score 5 / 50 %% | features from 0.35: same person / others %% |\n"
        "|--:|--:|--:|--:|--:|--:|--:|\n",
        people.size());
    std::vector<double> milliseconds;
    std::map<const Photograph *, double> eyes;
    for (const double width : {0, 32, 40, 64}) {
        std::vector<Head> heads;
        std::mt19937 random(7);
        for (size_t person = 0; person < people.size(); ++person) {
            for (const auto &photograph : people[person].photographs) {
                cv::Mat crop;
                double distance = 0;
                const auto portrait = portraitOf(photograph);
                if (width == 0)
                    crop = headOf(recognisers, portrait, &eyes[&photograph]);
                else if (eyes[&photograph] > 0)
                    crop = headOf(recognisers, framed(portrait, eyes[&photograph], width, random), &distance);
                if (!crop.empty())
                    heads.push_back({person, crop, {}, {}});
            }
        }
        std::vector<size_t> ids;
        for (auto &head : heads) {
            milliseconds.push_back(
                millisecondsOf([&] { ids.push_back(size_t(recognisers.ids->registerFace(head.crop, -1))); }));
        }
        for (auto &head : heads) {
            int id = -1;
            std::vector<int> candidates;
            std::vector<double> scores;
            recognisers.ids->identifyAll(head.crop, &id, &head.feature, &candidates, &scores, false);
            for (const size_t entry : ids)
                head.scores.push_back(entry < scores.size() ? scores[entry] : 0);
        }
        recognisers.ids->clearFaces();
        printRow(heads, people.size(), width == 0 ? "as it is" : std::to_string(int(width)).c_str(), asked);
    }
    std::printf("\nEnrolling a face takes %.0f ms processor time.\n", percentile(milliseconds, 0.5));
}
