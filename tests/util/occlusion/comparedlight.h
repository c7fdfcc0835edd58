#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

/// Two pictures of light, texel by texel.
struct ComparedLight {
    std::vector<double> a, b;

    void add(double first, double second) {
        a.push_back(first);
        b.push_back(second);
    }
    static double mean(const std::vector<double> & values) {
        double sum = 0.0;
        for (const double value : values)
            sum += value;
        return sum / double(values.size());
    }
    double meanDifference() const {
        double sum = 0.0;
        for (std::size_t i = 0; i < a.size(); ++i)
            sum += std::abs(a[i] - b[i]);
        return sum / double(a.size());
    }
    double correlation() const {
        const double ma = mean(a), mb = mean(b);
        double ab = 0.0, aa = 0.0, bb = 0.0;
        for (std::size_t i = 0; i < a.size(); ++i) {
            ab += (a[i] - ma) * (b[i] - mb);
            aa += (a[i] - ma) * (a[i] - ma);
            bb += (b[i] - mb) * (b[i] - mb);
        }
        return ab / std::sqrt(aa * bb);
    }
};
