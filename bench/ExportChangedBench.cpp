// The export of changed configuration over a /config tree of 200 INI files of 50 keys (every key
// mapped, one in ten changed), beside a pass that only reads every byte of both trees.
#include "BenchReport.h"
#include "BenchRoot.h"
#include "ConfigServer.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

CBenchRoot* g_pRoot = nullptr;
const int kFiles = 200;
const int kKeys = 50;

void BM_ExportChanged(benchmark::State& state)
{
    CConfigServer server;
    for (auto _ : state) {
        if (server.OnExportAllChangedConfig("/tmp/all.cfg") != 1)
            state.SkipWithError("export failed");
    }
}

void BM_ReadTreesFloor(benchmark::State& state)
{
    std::vector<char> vecBuf(65536);
    for (auto _ : state) {
        size_t nBytes = 0;
        ReadTree(g_pRoot->Real("/config"), vecBuf, nBytes);
        ReadTree(g_pRoot->Real("/phone/factory"), vecBuf, nBytes);
        benchmark::DoNotOptimize(nBytes);
    }
}

} // namespace

BENCHMARK(BM_ExportChanged)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadTreesFloor)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    CBenchRoot root;
    g_pRoot = &root;
    std::string strMap = "<configMap>\n";
    for (int k = 0; k < kKeys; ++k)
        strMap += " <item m7=\"bench.file{n}.key" + std::to_string(k) + "\" file=\"/config/bench/f{n}.ini\" section=\"S" +
                  std::to_string(k % 5) + "\" key=\"k" + std::to_string(k) + "\" range=\"0-" + std::to_string(kFiles - 1) +
                  "\"/>\n";
    root.Write("/phone/resource/configMap.xml", strMap + "</configMap>\n");
    for (int f = 0; f < kFiles; ++f) {
        std::string strCurrent, strFactory;
        for (int s = 0; s < 5; ++s) {
            strCurrent += "[S" + std::to_string(s) + "]\n";
            strFactory += "[S" + std::to_string(s) + "]\n";
            for (int k = s; k < kKeys; k += 5) {
                std::string strValue = "value_" + std::to_string(k);
                strFactory += "k" + std::to_string(k) + " = " + strValue + "\n";
                strCurrent += "k" + std::to_string(k) + " = " + strValue + ((f * kKeys + k) % 10 == 0 ? "x" : "") + "\n";
            }
        }
        root.Write("/config/bench/f" + std::to_string(f) + ".ini", strCurrent);
        root.Write("/phone/factory/bench/f" + std::to_string(f) + ".ini", strFactory);
    }
    root.Write("/tmp/.keep", "");
    // The export echoes every exported line on standard output; the figures go to standard error.
    int fdConsole = dup(STDOUT_FILENO);
    benchmark::Initialize(&argc, argv);
    CMedianReporter reporter;
    reporter.SetOutputStream(new std::ofstream("/dev/stderr"));
    (void)freopen("/dev/null", "w", stdout);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    double dOurs = reporter.Median("BM_ExportChanged");
    double dFloor = reporter.Median("BM_ReadTreesFloor");
    dprintf(fdConsole, "export of changed configuration: %.2f ms, floor %.2f ms, ratio %.2f (targets <= 10, < 100 ms)\n",
            dOurs, dFloor, dFloor > 0 ? dOurs / dFloor : 0.0);
    dprintf(fdConsole, "bench-row|changed-configuration export, 200 files (vs reading both trees)|%.2f ms|%.2f ms|%.2f|"
            "ratio <= 10, < 100 ms|%s\n", dOurs, dFloor, dFloor > 0 ? dOurs / dFloor : 0.0,
            (dFloor > 0 && dOurs / dFloor <= 10 && dOurs < 100) ? "yes" : "no");
    return 0;
}
