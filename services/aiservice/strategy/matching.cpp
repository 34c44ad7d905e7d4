#include "matching.h"

#include <algorithm>
#include <cstdint>
#include <set>

namespace matching {

void equaliseRows(std::vector<std::vector<double>> &rows)
{
    for (std::vector<double> &row : rows)
        row.resize(rows.front().size(), 0.0);
}

std::map<int, int> matchRows(const std::vector<std::vector<double>> &rows, double threshold)
{
    struct Pair
    {
        double similarity;
        size_t row;
        size_t column;
    };
    // Most columns are ids that nobody has any more: those are passed over once.
    std::vector<Pair> pairs;
    for (size_t row = 0; row < rows.size(); ++row) {
        for (size_t column = 0; column < rows[row].size(); ++column) {
            const double similarity = rows[row][column];
            if (similarity > 0.0 && similarity >= threshold)
                pairs.push_back({similarity, row, column});
        }
    }
    // They are in order of row and column already, which decides among equals.
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const Pair &a, const Pair &b) { return a.similarity > b.similarity; });

    std::map<int, int> result;
    std::set<size_t> taken;
    for (const Pair &pair : pairs) {
        if (result.count(static_cast<int>(pair.row)) > 0 || !taken.insert(pair.column).second)
            continue;
        result[static_cast<int>(pair.row)] = static_cast<int>(pair.column);
    }
    return result;
}

std::map<size_t, size_t> nearestPairs(const std::vector<cv::Point> &from, const std::vector<cv::Point> &to,
                                      int maxSquaredDistance)
{
    std::map<size_t, size_t> result;
    std::vector<std::pair<std::int64_t, size_t>> pairs;
    pairs.reserve(from.size() * to.size());
    for (size_t i = 0; i < from.size(); ++i) {
        for (size_t j = 0; j < to.size(); ++j) {
            const std::int64_t dx = std::int64_t{from[i].x} - to[j].x;
            const std::int64_t dy = std::int64_t{from[i].y} - to[j].y;
            pairs.emplace_back(dx * dx + dy * dy, i * to.size() + j);
        }
    }
    std::sort(pairs.begin(), pairs.end());

    std::vector<bool> taken(to.size(), false);
    for (const auto &[squaredDistance, combined] : pairs) {
        if (squaredDistance >= maxSquaredDistance)
            break;
        const size_t i = combined / to.size();
        const size_t j = combined % to.size();
        if (taken[j] || result.count(i) > 0)
            continue;
        result[i] = j;
        taken[j] = true;
    }
    return result;
}

cv::Mat cropAt(const std::vector<cv::Mat> &crops, size_t index)
{
    return index < crops.size() ? crops[index] : cv::Mat();
}

} // namespace matching
