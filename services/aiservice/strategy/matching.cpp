#include "matching.h"

#include <algorithm>
#include <cstdint>
#include <tuple>

namespace matching {

void equaliseRows(std::vector<std::vector<double>> &rows)
{
    for (std::vector<double> &row : rows)
        row.resize(rows.front().size(), 0.0);
}

std::map<int, int> matchRows(const std::vector<std::vector<double>> &rows, double threshold)
{
    // Few pairs of a class are strong enough, so sorting them is next to nothing.
    std::vector<std::tuple<double, size_t, size_t>> pairs; // the strongest first, by the most negative value
    size_t columns = 0;
    for (size_t row = 0; row < rows.size(); ++row) {
        columns = std::max(columns, rows[row].size());
        for (size_t column = 0; column < rows[row].size(); ++column) {
            const double value = rows[row][column];
            if (value > 0.0 && value >= threshold)
                pairs.emplace_back(-value, row, column);
        }
    }
    std::sort(pairs.begin(), pairs.end());

    std::map<int, int> result;
    std::vector<bool> taken(columns, false);
    for (const auto &[negative, row, column] : pairs) {
        if (!taken[column] && result.emplace(row, column).second)
            taken[column] = true;
    }
    return result;
}

std::map<size_t, size_t> nearestPairs(const std::vector<cv::Point> &from, const std::vector<cv::Point> &to,
                                      int maxSquaredDistance)
{
    std::map<size_t, size_t> result;
    std::vector<std::pair<std::int64_t, size_t>> pairs;
    for (size_t i = 0; i < from.size(); ++i) {
        for (size_t j = 0; j < to.size(); ++j) {
            const std::int64_t dx = std::int64_t{from[i].x} - to[j].x;
            const std::int64_t dy = std::int64_t{from[i].y} - to[j].y;
            const std::int64_t squaredDistance = dx * dx + dy * dy;
            if (squaredDistance < maxSquaredDistance)
                pairs.emplace_back(squaredDistance, i * to.size() + j);
        }
    }
    std::sort(pairs.begin(), pairs.end());

    std::vector<bool> taken(to.size(), false);
    for (const auto &pair : pairs) {
        const size_t i = pair.second / to.size();
        const size_t j = pair.second % to.size();
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
