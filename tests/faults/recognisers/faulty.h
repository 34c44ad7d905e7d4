#pragma once

#include "faultcontrol.h"

#include <opencv2/core.hpp>

#include <csignal>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <time.h>
#include <vector>

/// What the faulty recognisers have in common: they find three people, or do what FaultControl says.
namespace faulty {

inline FaultControl *control()
{
    static FaultControl *const mapped = FaultControl::map(std::getenv("AI_FAULTS"));
    return mapped;
}

inline Behaviour behaviourOf(RecogniserClass recogniser)
{
    return control() ? static_cast<Behaviour>(control()->behaviour[recogniser].load()) : Behaviour::works;
}

inline void pause(int milliseconds)
{
    const timespec time{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    nanosleep(&time, nullptr);
}

/// Counts the call and does what doesn't depend on its results. What is left is for the caller.
inline Behaviour beginCall(RecogniserClass recogniser)
{
    if (control())
        ++control()->calls[recogniser];
    if (behaviourOf(recogniser) == Behaviour::hangs) {
        ++control()->hanging[recogniser];
        while (behaviourOf(recogniser) == Behaviour::hangs)
            pause(5);
        --control()->hanging[recogniser];
    }
    const Behaviour behaviour = behaviourOf(recogniser);
    switch (behaviour) {
    case Behaviour::throws:
        throw std::runtime_error("faulty recogniser");
    case Behaviour::throwsNumber:
        throw 42;
    case Behaviour::slow:
        pause(2000);
        break;
    case Behaviour::crashes:
        std::raise(SIGSEGV);
        break;
    default:
        break;
    }
    return behaviour;
}

/// A recogniser, or an exception where the class refuses to be loaded.
template <class Recogniser>
Recogniser *create(RecogniserClass recogniser)
{
    if (behaviourOf(recogniser) == Behaviour::refusesToLoad)
        throw std::runtime_error("faulty model file");
    return new Recogniser;
}

constexpr int people = 3;
constexpr int smallest = std::numeric_limits<int>::min();
constexpr int largest = std::numeric_limits<int>::max();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

inline std::vector<cv::Rect> anyRects()
{
    return {{smallest, smallest, largest, largest},
            {largest, largest, largest, largest},
            {-5, -5, 0, 0},
            {100, 100, -50, -50},
            {1919, 1079, 500, 500},
            {0, 0, smallest, smallest}};
}

inline cv::Rect bodyOf(int person)
{
    return {200 + 500 * person, 300, 300, 500};
}

inline cv::Rect faceOf(int person)
{
    return {300 + 500 * person, 400, 100, 100};
}

inline std::vector<cv::Point> landmarksOf(const cv::Rect &face)
{
    const auto at = [&](int x, int y) { return face.tl() + cv::Point(x, y); };
    return {at(30, 40), at(70, 40), at(50, 60), at(35, 80), at(65, 80)};
}

/// One rectangle and one score for each person.
inline void findPeople(Behaviour behaviour, cv::Rect (*rectOf)(int), std::vector<cv::Rect> &rects,
                       std::vector<float> &scores)
{
    if (behaviour == Behaviour::garbage) {
        rects = anyRects();
        scores.assign(rects.size(), 1e30F);
        return;
    }
    for (int person = 0; person < people; ++person) {
        rects.push_back(rectOf(person));
        scores.push_back(behaviour == Behaviour::notANumber ? notANumber : 0.9F);
    }
    if (behaviour == Behaviour::wrongLengths)
        scores.resize(1);
}

/// One class and one score for each of `count` things.
inline void classifyAll(Behaviour behaviour, size_t count, std::vector<int> &labels,
                        std::vector<float> &scores)
{
    labels.assign(count, 0);
    scores.assign(count, 0.9F);
    if (behaviour == Behaviour::garbage) {
        for (size_t i = 0; i < count; ++i)
            labels[i] = i % 2 ? smallest : largest;
        scores.assign(count, -1e30F);
    } else if (behaviour == Behaviour::notANumber) {
        for (size_t i = 0; i < count; ++i)
            scores[i] = i % 2 ? notANumber : infinite;
    } else if (behaviour == Behaviour::wrongLengths) {
        labels.resize(count / 2);
        scores.resize(count + 7);
    }
}

} // namespace faulty
