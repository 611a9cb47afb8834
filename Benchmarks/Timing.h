// Times taken in turn, and what is made of them.
#pragma once

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <vector>

namespace oxbeam::bench {

using Json = nlohmann::ordered_json;

double seconds(const auto& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

// Medians of times taken in turn, and of the ratio of the first to the second of each turn.
Json compare(unsigned turns, const auto& first, const char* firstName, const auto& second, const char* secondName) {
    std::vector<double> a, b, ratios;
    for (unsigned turn = 0; turn < turns; ++turn) {
        a.push_back(first());
        b.push_back(second());
        ratios.push_back(a.back() / b.back());
    }
    return {{firstName, median(a)}, {secondName, median(b)}, {"ratio", median(ratios)}};
}

}  // namespace oxbeam::bench
