#include "CliInterrupt.h"

#include "engine/DLSQLiteDatabase.h"
#include "interchange/TextExport.h"
#include "interchange/TextImport.h"
#include "workbench/SQLExecution.h"

#include <atomic>
#include <csignal>

namespace brindle::cli {

namespace {

std::atomic<bool> interrupted{false};
std::atomic<TDLSQLiteDatabase*> interruptDatabase{nullptr};
std::atomic<TDLSQLiteDatabase*> interruptSecond{nullptr};
std::atomic<TSQLRunner*> interruptRunner{nullptr};
std::atomic<TTextImporter*> interruptImporter{nullptr};
std::atomic<TDataSetExporter*> interruptExporter{nullptr};

extern "C" void onInterrupt(int) {
    interrupted = true;
    if (TSQLRunner* runner = interruptRunner.load()) runner->Abort();
    if (TTextImporter* importer = interruptImporter.load()) importer->Cancel();
    if (TDataSetExporter* exporter = interruptExporter.load()) exporter->Cancel();
    if (TDLSQLiteDatabase* db = interruptDatabase.load()) db->Interrupt();
    if (TDLSQLiteDatabase* db = interruptSecond.load()) db->Interrupt();
}

}  // namespace

TInterruptScope::TInterruptScope(const TInterruptTargets& Targets) {
    interrupted = false;
    interruptDatabase = Targets.Database;
    interruptSecond = Targets.Second;
    interruptRunner = Targets.Runner;
    interruptImporter = Targets.Importer;
    interruptExporter = Targets.Exporter;
    FPrevious = std::signal(SIGINT, onInterrupt);
}

TInterruptScope::~TInterruptScope() {
    std::signal(SIGINT, FPrevious);
    interruptDatabase = nullptr;
    interruptSecond = nullptr;
    interruptRunner = nullptr;
    interruptImporter = nullptr;
    interruptExporter = nullptr;
}

bool TInterruptScope::Interrupted() {
    return interrupted.load();
}

}  // namespace brindle::cli
