// A console reporter that also keeps the median of each benchmark, so a bench can print the
// ratio of ours to its baseline beside the usual table.
#pragma once

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string>

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
