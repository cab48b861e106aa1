// What is printed at the end: per camera a table of its modules, and how well exposure did.

#ifndef PIPELINE_REPORT_H
#define PIPELINE_REPORT_H

#include <cstdio>
#include <vector>

#include "camera.h"

namespace pipeline {

/// Median, 99th percentile and maximum of some times. A percentile is the smallest value with at least that part of
/// the times at or below it.
struct Spread {
    double median = 0;
    double percentile99 = 0;
    double max = 0;
};

Spread spreadOf(std::vector<double> values);

/// Mean distance of the values from the target.
double meanError(std::vector<double>::const_iterator begin, std::vector<double>::const_iterator end, double target);

/// @param seconds  how long the camera ran
void printReport(std::FILE* out, const Camera& camera, double seconds);

}  // namespace pipeline

#endif  // PIPELINE_REPORT_H
