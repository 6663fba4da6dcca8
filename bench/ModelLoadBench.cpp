// Loading a configuration text into an empty model (names all mapped, a 300-entry ignore list),
// beside a pass over the same bytes that only finds the line ends.
#include "BenchReport.h"
#include "BenchRoot.h"
#include "ConfigServer.h"
#include "M7Store.h"
#include "configParser.h"

#include <cstring>
#include <memory>

namespace {

CBenchRoot* g_pRoot = nullptr;
const int kMaxItems = 100000;

std::string FileFor(int nItems)
{
    return "/tmp/user" + std::to_string(nItems) + ".cfg";
}

void BM_LoadModel(benchmark::State& state)
{
    int nItems = static_cast<int>(state.range(0));
    CConfigServer server;
    ignoreM7List.Clear();
    (void)server.LoadIgnoreM7List();
    (void)get_config_info_t(BenchItemName(0).c_str()); // the map is read once, before timing
    std::string strPath = FileFor(nItems);
    for (auto _ : state) {
        state.PauseTiming();
        ClearM7Model();
        state.ResumeTiming();
        if (server.MergeLoadM7Model(strPath.c_str(), 0, 0) != 1 || m7ItemList.Count() != static_cast<uint32_t>(nItems))
            state.SkipWithError("load failed");
    }
    state.SetItemsProcessed(state.iterations() * nItems);
    ClearM7Model();
}

void BM_LineEndsFloor(benchmark::State& state)
{
    int nItems = static_cast<int>(state.range(0));
    std::string strReal = g_pRoot->Real(FileFor(nItems));
    std::unique_ptr<char[]> pBuffer(new char[1 << 16]);
    for (auto _ : state) {
        FILE* pFile = fopen(strReal.c_str(), "rb");
        size_t nLines = 0, nGot;
        while ((nGot = fread(pBuffer.get(), 1, 1 << 16, pFile)) > 0) {
            const char* p = pBuffer.get();
            const char* pEnd = p + nGot;
            while ((p = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(pEnd - p)))) != nullptr) {
                ++nLines;
                ++p;
            }
        }
        fclose(pFile);
        benchmark::DoNotOptimize(nLines);
    }
    state.SetItemsProcessed(state.iterations() * nItems);
}

} // namespace

BENCHMARK(BM_LoadModel)->Arg(5000)->Arg(100000)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LineEndsFloor)->Arg(5000)->Arg(100000)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    CBenchRoot root;
    g_pRoot = &root;
    root.Write("/phone/resource/configMap.xml", BenchConfigMap(kMaxItems));
    root.Write("/phone/resource/autopIgnroeM7.xml", BenchIgnoreList(300));
    for (int nItems : {5000, kMaxItems})
        root.Write(FileFor(nItems), BenchUserFile(nItems));
    benchmark::Initialize(&argc, argv);
    CMedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    double d5k = reporter.Median("BM_LoadModel/5000") * 1e6 / 5000;
    double d100k = reporter.Median("BM_LoadModel/100000") * 1e6 / 100000;
    double dFloor = reporter.Median("BM_LineEndsFloor/100000") * 1e6 / 100000;
    fprintf(stderr, "\nmodel load per item: %.0f ns at 5000, %.0f ns at 100000 (ratio %.2f, target <= 3)\n", d5k, d100k,
            d5k > 0 ? d100k / d5k : 0.0);
    fprintf(stderr, "100000-item load: %.1f ms (target < 100 ms); line-end floor %.1f ns per item\n",
            reporter.Median("BM_LoadModel/100000"), dFloor);
    PrintBenchRow("model load, 100000 items (vs memchr line ends)", reporter.Median("BM_LoadModel/100000"), "ms",
                  reporter.Median("BM_LineEndsFloor/100000"), "< 100 ms", reporter.Median("BM_LoadModel/100000") < 100);
    PrintBenchRow("model load per item, 100000 (vs per item at 5000)", d100k, "ns", d5k, "ratio <= 3",
                  d5k > 0 && d100k / d5k <= 3);
    return 0;
}
