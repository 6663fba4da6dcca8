// A console reporter that also keeps the median of each benchmark, so a bench can print the
// ratio of ours to its baseline beside the usual table; and interleaved pairs of ours and a floor.
#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

class CMedianReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& vecRuns) override
    {
        for (const Run& run : vecRuns) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                m_mapMedian[run.run_name.function_name +
                            (run.run_name.args.empty() ? "" : "/" + run.run_name.args)] = run.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(vecRuns);
    }

    // Median real time per iteration in the reporter's unit, or 0 when the benchmark did not run.
    double Median(const std::string& strName) const
    {
        auto it = m_mapMedian.find(strName);
        return it == m_mapMedian.end() ? 0.0 : it->second;
    }

private:
    std::map<std::string, double> m_mapMedian;
};

// One row of the table that bench/run prints: our figure, the baseline measured in the same run
// (negative when there is none), the target and whether it is met.
inline void PrintBenchRow(const char* szName, double dOurs, const char* szUnit, double dBaseline, const char* szTarget,
                          bool bMet)
{
    if (dBaseline >= 0)
        printf("bench-row|%s|%.2f %s|%.2f %s|%.2f|%s|%s\n", szName, dOurs, szUnit, dBaseline, szUnit,
               dBaseline > 0 ? dOurs / dBaseline : 0.0, szTarget, bMet ? "yes" : "no");
    else
        printf("bench-row|%s|%.2f %s|-|-|%s|%s\n", szName, dOurs, szUnit, szTarget, bMet ? "yes" : "no");
    fflush(stdout);
}

// Figures of interleaved repetitions: ours, then the floor, then ours again, so that a machine
// busy with other work slows both sides of a pair alike; the ratio is taken per pair.
struct CPairFigures {
    std::vector<double> vecOurs;
    std::vector<double> vecFloor;
    std::vector<double> vecRatio;
};

inline double MedianOf(std::vector<double> vec)
{
    if (vec.empty())
        return 0.0;
    std::sort(vec.begin(), vec.end());
    size_t nHalf = vec.size() / 2;
    return vec.size() % 2 != 0 ? vec[nHalf] : (vec[nHalf - 1] + vec[nHalf]) / 2;
}

// nPairs pairs after nWarmUp unrecorded ones; each function returns the figure of one repetition
// (a time per operation or a rate), or a negative number when the repetition failed.
inline bool RunPairs(int nWarmUp, int nPairs, const std::function<double()>& fnOurs,
                     const std::function<double()>& fnFloor, CPairFigures& figures)
{
    for (int i = 0; i < nWarmUp + nPairs; ++i) {
        double dOurs = fnOurs();
        double dFloor = fnFloor();
        if (dOurs < 0 || dFloor <= 0)
            return false;
        if (i < nWarmUp)
            continue;
        figures.vecOurs.push_back(dOurs);
        figures.vecFloor.push_back(dFloor);
        figures.vecRatio.push_back(dOurs / dFloor);
    }
    return true;
}

// One row of bench/run's table from interleaved pairs: medians with their min-max, the median of
// the per-pair ratios, met when that ratio is at most (bAtMost) or at least dTarget.
inline void PrintPairRow(const char* szName, const CPairFigures& figures, const char* szUnit, bool bAtMost,
                         double dTarget)
{
    auto Range = [](const std::vector<double>& vec, const char* szFormat) {
        char szText[96];
        auto [itMin, itMax] = std::minmax_element(vec.begin(), vec.end());
        std::string strFormat = std::string(szFormat) + " (" + szFormat + "-" + szFormat + ")";
        snprintf(szText, sizeof(szText), strFormat.c_str(), MedianOf(vec), *itMin, *itMax);
        return std::string(szText);
    };
    if (figures.vecRatio.empty()) {
        printf("bench-row|%s|failed|-|-|%s %.2f|no\n", szName, bAtMost ? "ratio <=" : "ratio >=", dTarget);
        fflush(stdout);
        return;
    }
    double dRatio = MedianOf(figures.vecRatio);
    const char* szFigure = MedianOf(figures.vecOurs) >= 1000 ? "%.0f" : "%.2f";
    printf("bench-row|%s|%s %s|%s %s|%s|ratio %s %.2f, %zu pairs|%s\n", szName, Range(figures.vecOurs, szFigure).c_str(),
           szUnit, Range(figures.vecFloor, szFigure).c_str(), szUnit, Range(figures.vecRatio, "%.2f").c_str(),
           bAtMost ? "<=" : ">=", dTarget, figures.vecRatio.size(), (bAtMost ? dRatio <= dTarget : dRatio >= dTarget) ? "yes" : "no");
    fflush(stdout);
}
