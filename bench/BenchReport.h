// A console reporter that also keeps the median of each benchmark, so a bench can print the
// ratio of ours to its baseline beside the usual table.
#pragma once

#include <benchmark/benchmark.h>
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
