#pragma once

#include <opencv2/core.hpp>

#include <cstddef>
#include <map>
#include <vector>

/**
 * What the analyses share to tell what belongs together. Free of state, safe on any thread.
 */
namespace matching {

/// Gives every row the length of the first: longer rows are cut, shorter ones filled with 0.
void equaliseRows(std::vector<std::vector<double>> &rows);

/// Greedy assignment of rows to columns of a similarity matrix: the strongest pair first, every row and
/// column once at most, nothing below the threshold, and nothing at 0 or below. Of equal values the
/// first row, then the first column wins.
std::map<int, int> matchRows(const std::vector<std::vector<double>> &rows, double threshold);

/// Pairs the nearest points of two lists, each used once at most, as long as their squared distance is
/// below the limit. At equal distance the lower index of the first list, then of the second, goes first.
/// From index in `from` to index in `to`.
std::map<size_t, size_t> nearestPairs(const std::vector<cv::Point> &from, const std::vector<cv::Point> &to,
                                      int maxSquaredDistance);

/// The head crop of the face with this index; empty where there are fewer crops than faces.
cv::Mat cropAt(const std::vector<cv::Mat> &crops, size_t index);

} // namespace matching
