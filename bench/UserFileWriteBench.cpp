// Rewriting the user configuration file (".bak" copy, then the table) beside the floor: the same
// bytes written with one fwrite after the same ".bak" copy.
#include "BenchReport.h"
#include "BenchRoot.h"
#include "ConfigServer.h"
#include "ETL_MsgQueueHelper.h"
#include "M7Store.h"
#include "fwTrace.h"

namespace {

CBenchRoot* g_pRoot = nullptr;

void FillTable(int nItems)
{
    ClearM7Model();
    for (int i = 0; i < nItems; ++i)
        SetM7Item(BenchItemName(i).c_str(), ("value_" + std::to_string(i)).c_str(), 0);
}

void BM_SaveUserConfig(benchmark::State& state)
{
    int nItems = static_cast<int>(state.range(0));
    CConfigServer server;
    server.SetUserCfgPath("/config/user" + std::to_string(nItems) + "-local.cfg");
    FillTable(nItems);
    server.SaveUserConfig(nullptr, 0);
    for (auto _ : state)
        server.SaveUserConfig(nullptr, 0);
    state.SetItemsProcessed(state.iterations() * nItems);
    ClearM7Model();
}

void BM_WriteFloor(benchmark::State& state)
{
    int nItems = static_cast<int>(state.range(0));
    std::string strText = BenchUserFile(nItems);
    std::string strLogical = "/config/floor" + std::to_string(nItems) + ".cfg";
    g_pRoot->Write(strLogical, strText);
    std::string strReal = g_pRoot->Real(strLogical);
    for (auto _ : state) {
        (void)fwCopyFile(strLogical.c_str(), (strLogical + ".bak").c_str());
        FILE* pFile = fopen(strReal.c_str(), "w+");
        fwrite(strText.data(), 1, strText.size(), pFile);
        fclose(pFile);
    }
    state.SetItemsProcessed(state.iterations() * nItems);
}

} // namespace

// Each size's floor runs right after our figure, so that both meet the heap in the same state.
BENCHMARK(BM_SaveUserConfig)->Arg(5000)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteFloor)->Arg(5000)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SaveUserConfig)->Arg(100000)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteFloor)->Arg(100000)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    // The service's process-wide settings (its allocation policy among them) hold for our figure
    // and the floor alike.
    (void)ETL_MsgQueueHelper::uCSystemShareHelper::getGlobalObject();
    CBenchRoot root;
    g_pRoot = &root;
    root.Write("/config/.keep", "");
    benchmark::Initialize(&argc, argv);
    CMedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (int nItems : {5000, 100000}) {
        std::string strArg = "/" + std::to_string(nItems);
        double dOurs = reporter.Median("BM_SaveUserConfig" + strArg);
        double dFloor = reporter.Median("BM_WriteFloor" + strArg);
        fprintf(stderr, "SaveUserConfig %d items: %.2f ms, floor %.2f ms, ratio %.2f (target <= 2)\n", nItems, dOurs,
                dFloor, dFloor > 0 ? dOurs / dFloor : 0.0);
        std::string strName = "SaveUserConfig, " + std::to_string(nItems) + " items (vs fwrite + .bak copy)";
        PrintBenchRow(strName.c_str(), dOurs, "ms", dFloor, "ratio <= 2", dFloor > 0 && dOurs / dFloor <= 2);
    }
    return 0;
}
