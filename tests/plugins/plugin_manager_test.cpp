// The plug-in manager with real plug-ins: the example plug-ins (broken ones
// included) and the probes, which journal what happens to them and call back
// into the manager on request.
#include "vyn/plugins/plugin_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "examples/plugins/example_events.h"
#include "tests/plugins/probes/probe_protocol.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_dir.h"
#include "vyn/core/status.h"
#include "vyn/log/system_log.h"

namespace vyn::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string kCounter = VYN_EXAMPLE_EVENT_COUNTER;
const std::string kProbeA = VYN_TEST_PROBE_A;
const std::string kProbeB = VYN_TEST_PROBE_B;

// Another spelling of the same file.
std::string Respelled(const std::string& path) {
  return path.substr(0, path.find_last_of('/')) + "/./" + path.substr(path.find_last_of('/') + 1);
}

// For the whole process: the probes keep it across tests, as their libraries
// stay loaded.
ProbeJournal g_journal;

class PluginTest : public ::testing::Test {
 protected:
  PluginTest() { journal_.Take(); }
  ~PluginTest() override { manager_.Terminate(); }

  // Loads a probe and hands it the journal.
  void LoadProbe(const std::string& path) {
    ASSERT_EQ(manager_.LoadPlugin(path), VYN_STATUS_SUCCESS);
    ASSERT_EQ(manager_.CallPluginProcessEvent(path, kProbeAttachJournal, &journal_, false),
              VYN_STATUS_SUCCESS);
    journal_.Take();
  }
  std::vector<std::string> Names() {
    std::vector<std::string> names;
    std::string name;
    while (manager_.GetPlugin(static_cast<int32_t>(names.size()), name) == VYN_STATUS_SUCCESS) {
      names.push_back(name);
    }
    return names;
  }
  int32_t Count(const std::string& name) {
    return manager_.CallPluginProcessEvent(name, VYN_EXAMPLE_EVENT_GET_COUNT, nullptr, false);
  }

  CVYNPluginManager& manager_ = GetVYNPluginManager();
  ProbeJournal& journal_ = g_journal;
};

TEST_F(PluginTest, LoadAnswersEveryWayALoadCanGo) {
  TempDir dir;
  WriteFile(dir.File("text.so"), "not a library\n");
  ASSERT_EQ(mkfifo(dir.File("pipe.so").c_str(), 0600), 0);   // would keep a load waiting
  CVYNPlugin* record = reinterpret_cast<CVYNPlugin*>(&dir);  // must be overwritten
  ASSERT_EQ(manager_.LoadPlugin(kCounter, &record), VYN_STATUS_SUCCESS);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->strName, kCounter);
  EXPECT_EQ(record->pfnShowDialog, nullptr);

  record = reinterpret_cast<CVYNPlugin*>(&dir);
  EXPECT_EQ(manager_.LoadPlugin(kCounter, &record), VYN_STATUS_NOT_UNIQUE);
  EXPECT_EQ(record, nullptr);
  // Another spelling of the same file is another plug-in on the same library.
  const std::string spelled = Respelled(kCounter);
  EXPECT_EQ(manager_.LoadPlugin(spelled, &record), VYN_STATUS_SUCCESS);
  EXPECT_EQ(record->hModule, manager_.GetPlugin(kCounter)->hModule);

  for (const std::string& bad :
       {std::string(), dir.File("missing.so"), dir.File("text.so"), dir.File("pipe.so"), dir.path(),
        std::string(VYN_TOOL), std::string("libc.so.6"),
        std::string(VYN_EXAMPLE_BROKEN_NO_TERMINATE), std::string(VYN_EXAMPLE_BROKEN_NO_INITIALIZE),
        std::string(VYN_EXAMPLE_BROKEN_UNRESOLVED),
        kCounter.substr(0, 3) + std::string(1, '\0') + kCounter.substr(3)}) {
    EXPECT_EQ(manager_.LoadPlugin(bad), VYN_STATUS_UNSPECIFIC_ERROR) << bad;
  }
  // A failing or throwing PluginInitialize still leaves its plug-in listed.
  EXPECT_EQ(manager_.LoadPlugin(VYN_EXAMPLE_BROKEN_INITIALIZE_FAILS), VYN_STATUS_OPERATION_BROKEN);
  EXPECT_EQ(manager_.LoadPlugin(VYN_EXAMPLE_BROKEN_INITIALIZE_THROWS), VYN_STATUS_EXCEPTION_CAUGHT);
  EXPECT_THAT(Names(), ElementsAre(kCounter, spelled, VYN_EXAMPLE_BROKEN_INITIALIZE_FAILS,
                                   VYN_EXAMPLE_BROKEN_INITIALIZE_THROWS));
  std::string name = "unchanged";
  EXPECT_EQ(manager_.GetPlugin(-1, name), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(manager_.GetPlugin(4, name), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(name, "unchanged");
  EXPECT_EQ(manager_.GetPlugin("./missing.so"), nullptr);
}

TEST_F(PluginTest, RecordsResolveAndUnloadAsTheirOwnersSay) {
  CVYNPlugin own;
  EXPECT_EQ(manager_.LoadPlugin(static_cast<CVYNPlugin*>(nullptr)), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(manager_.LoadPlugin(&own), VYN_STATUS_UNSPECIFIC_ERROR);  // no library at all
  EXPECT_EQ(own.pfnInitialize, nullptr);

  LoadProbe(kProbeA);
  LoadProbe(kProbeB);
  ASSERT_EQ(manager_.LoadPlugin(VYN_EXAMPLE_DIALOG), VYN_STATUS_SUCCESS);
  own.hModule = manager_.GetPlugin(VYN_EXAMPLE_DIALOG)->hModule;
  ASSERT_EQ(manager_.LoadPlugin(&own), VYN_STATUS_SUCCESS);
  EXPECT_NE(own.pfnShowDialog, nullptr);
  EXPECT_EQ(own.pfnProcessEvent, nullptr);
  EXPECT_EQ(manager_.UnloadPlugin(&own), VYN_STATUS_NOT_FOUND);  // never listed

  // Deleting a listed record unloads it; unloading twice finds nothing.
  delete manager_.GetPlugin(kProbeA);
  EXPECT_THAT(journal_.Take(), ElementsAre("probe_a PluginTerminate"));
  CVYNPlugin* dialog = manager_.GetPlugin(VYN_EXAMPLE_DIALOG);
  EXPECT_EQ(manager_.UnloadPlugin(dialog), VYN_STATUS_SUCCESS);
  EXPECT_EQ(manager_.UnloadPlugin(dialog), VYN_STATUS_NOT_FOUND);
  EXPECT_THAT(Names(), ElementsAre(kProbeB));

  // The library stayed loaded: the journal handed over before is still there.
  ASSERT_EQ(manager_.LoadPlugin(kProbeA), VYN_STATUS_SUCCESS);
  EXPECT_EQ(manager_.UnloadAllPlugins(), VYN_STATUS_SUCCESS);
  EXPECT_THAT(journal_.Take(), ElementsAre("probe_a PluginInitialize", "probe_b PluginTerminate",
                                           "probe_a PluginTerminate"));
  EXPECT_TRUE(Names().empty());
}

TEST_F(PluginTest, CallsReachOnlyWhatIsThere) {
  EXPECT_EQ(manager_.CallPluginProcessEvent(105, nullptr), VYN_STATUS_SUCCESS);
  EXPECT_EQ(manager_.CallPluginProcessEvent(kCounter, 105, nullptr, true), VYN_STATUS_NOT_FOUND);
  EXPECT_EQ(manager_.CallPluginShowDialog(kCounter, true), VYN_STATUS_NOT_FOUND);

  ASSERT_EQ(manager_.LoadPlugin(kCounter), VYN_STATUS_SUCCESS);
  ASSERT_EQ(manager_.LoadPlugin(VYN_EXAMPLE_DIALOG), VYN_STATUS_SUCCESS);
  LoadProbe(kProbeA);
  EXPECT_EQ(manager_.CallPluginShowDialog(kCounter, true), VYN_STATUS_NOT_IMPLEMENTED);
  EXPECT_EQ(manager_.CallPluginProcessEvent(VYN_EXAMPLE_DIALOG, 105, nullptr, false),
            VYN_STATUS_NOT_IMPLEMENTED);
  EXPECT_EQ(manager_.CallPluginShowDialog(kProbeA, true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(manager_.CallPluginProcessEvent(kCounter, 105, nullptr, true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(manager_.CallPluginProcessEvent(kCounter, 105, nullptr, false), VYN_STATUS_SUCCESS);
  EXPECT_EQ(manager_.CallPluginProcessEvent(106, nullptr), VYN_STATUS_SUCCESS);
  EXPECT_EQ(Count(kCounter), 2);                                   // the query did not count
  EXPECT_THAT(journal_.Take(), ElementsAre("probe_a event 106"));  // nor did the dialog query run
  // The dialog runs without the lock: the probe's other thread got through.
  EXPECT_EQ(manager_.CallPluginShowDialog(kProbeA, false), VYN_STATUS_SUCCESS);
}

TEST_F(PluginTest, ThrownExceptionsStopInTheManagerAndAreLogged) {
  TempDir dir;
  ScopedCurrentDirectory in_dir(dir.path());
  CVYNSystemLogEx& log = GetVYNSystemLogEx();
  ASSERT_EQ(log.Initialize(nullptr, "", ""), VYN_STATUS_SUCCESS);
  EXPECT_EQ(manager_.Initialize(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(manager_.LoadPlugin(VYN_EXAMPLE_BROKEN_INITIALIZE_THROWS), VYN_STATUS_EXCEPTION_CAUGHT);
  LoadProbe(kProbeA);
  LoadProbe(kProbeB);
  EXPECT_EQ(manager_.CallPluginProcessEvent(kProbeA, kProbeThrow, nullptr, false),
            VYN_STATUS_EXCEPTION_CAUGHT);
  EXPECT_EQ(manager_.CallPluginProcessEvent(kProbeThrow, nullptr), VYN_STATUS_SUCCESS);
  manager_.CallPluginProcessEvent(kProbeA, kProbeThrowOnTerminate, nullptr, false);
  EXPECT_EQ(manager_.UnloadPlugin(manager_.GetPlugin(kProbeA)), VYN_STATUS_EXCEPTION_CAUGHT);
  EXPECT_EQ(manager_.GetPlugin(kProbeA), nullptr);
  EXPECT_EQ(manager_.Terminate(), VYN_STATUS_SUCCESS);
  log.Terminate();

  const auto files = std::filesystem::directory_iterator("Logs");
  const std::string written = ReadFile(begin(files)->path().string());
  const auto thrown = [](const char* where, const std::string& plugin, const char* what) {
    return std::string("exception;;CVYNPluginManager;;\"") + where + " has thrown an exception; " +
           plugin + "; " + what + "\"";
  };
  for (const std::string& expected : std::vector<std::string>{
           "information;;CVYNPluginManager;;\"The plugin manager has been started.\"",
           thrown("LoadPlugin(); PluginInitialize", VYN_EXAMPLE_BROKEN_INITIALIZE_THROWS,
                  "the example plug-in fails to initialise"),
           thrown("CallPluginProcessEvent(); PluginProcessEvent", kProbeA, "probe event"),
           // The event to all went on to the next plug-in after the first threw.
           thrown("CallPluginProcessEvent(); PluginProcessEvent", kProbeB, "probe event"),
           thrown("UnloadPlugin(); PluginTerminate", kProbeA, "probe terminate"),
           "information;;CVYNPluginManager;;\"The plugin manager has been terminated.\""}) {
    EXPECT_THAT(written, HasSubstr(expected));
  }
}

TEST_F(PluginTest, PluginsCallBackFromTheirOwnEntryPoints) {
  LoadProbe(kProbeA);
  LoadProbe(kProbeB);
  ProbeForward forward{kProbeB.c_str(), 42};
  EXPECT_EQ(manager_.CallPluginProcessEvent(kProbeA, kProbeForward, &forward, false),
            VYN_STATUS_SUCCESS);
  EXPECT_EQ(manager_.CallPluginProcessEvent(kProbeA, kProbeUnloadSelf, nullptr, false),
            VYN_STATUS_SUCCESS);
  EXPECT_THAT(journal_.Take(), ElementsAre("probe_a event 6", "probe_b event 42", "probe_a event 3",
                                           "probe_a PluginTerminate"));
  EXPECT_THAT(Names(), ElementsAre(kProbeB));

  // To all: a plug-in loaded by a handler misses the event under way; one
  // unloaded by an earlier handler is skipped.
  LoadProbe(kProbeA);
  manager_.CallPluginProcessEvent(kProbeLoad, const_cast<char*>(kCounter.c_str()));
  EXPECT_EQ(Count(kCounter), 0);
  EXPECT_EQ(manager_.CallPluginProcessEvent(kProbeUnloadAll, nullptr), VYN_STATUS_SUCCESS);
  EXPECT_THAT(journal_.Take(), ElementsAre("probe_b event 5", "probe_a event 5", "probe_b event 4",
                                           "probe_b PluginTerminate", "probe_a PluginTerminate"));
  EXPECT_TRUE(Names().empty());
}

TEST_F(PluginTest, OtherThreadsWaitForARunningEvent) {
  LoadProbe(kProbeA);
  std::atomic<int> gate{kGateClosed};
  std::thread event([&] {
    EXPECT_EQ(manager_.CallPluginProcessEvent(kProbeA, kProbeWaitAtGate, &gate, false),
              VYN_STATUS_SUCCESS);
  });
  for (int i = 0; i < 30000 && gate != kGateEntered; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ASSERT_EQ(gate, kGateEntered);
  std::atomic<bool> unloaded{false};
  std::thread unload([&] {
    EXPECT_EQ(manager_.UnloadPlugin(manager_.GetPlugin(kProbeA)), VYN_STATUS_SUCCESS);
    unloaded = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_FALSE(unloaded);
  gate = kGateOpen;
  event.join();
  unload.join();
  EXPECT_THAT(journal_.Take(),
              ElementsAre("probe_a event 2", "probe_a gate passed", "probe_a PluginTerminate"));
}

TEST(PluginExit, PluginsStillLoadedAtExitEndBeforeTheirStatics) {
  const ChildResult child = RunChild({VYN_PLUGIN_EXIT_HOST, kProbeA});
  EXPECT_EQ(child.exit_code, 0) << child.output;
  EXPECT_EQ(child.output, "leaving main\nprobe_a PluginTerminate, own objects alive\n");
}

}  // namespace
}  // namespace vyn::test
