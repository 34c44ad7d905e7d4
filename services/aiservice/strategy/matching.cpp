#include "matching.h"

#include <algorithm>
#include <cstdint>

namespace matching {

void equaliseRows(std::vector<std::vector<double>> &rows)
{
    for (std::vector<double> &row : rows)
        row.resize(rows.front().size(), 0.0);
}

std::map<int, int> matchRows(std::vector<std::vector<double>> &rows, double threshold)
{
    std::map<int, int> result;
    while (true) {
        double largest = 0.0;
        size_t bestRow = rows.size();
        size_t bestColumn = 0;
        for (size_t row = 0; row < rows.size(); ++row) {
            for (size_t column = 0; column < rows[row].size(); ++column) {
                if (rows[row][column] > largest) {
                    largest = rows[row][column];
                    bestRow = row;
                    bestColumn = column;
                }
            }
        }
        if (bestRow == rows.size() || largest < threshold)
            return result;
        result[static_cast<int>(bestRow)] = static_cast<int>(bestColumn);
        std::fill(rows[bestRow].begin(), rows[bestRow].end(), 0.0);
        for (std::vector<double> &row : rows) {
            if (bestColumn < row.size())
                row[bestColumn] = 0.0;
        }
    }
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
