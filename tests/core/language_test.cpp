#include "vyn/core/language.h"

#include <gtest/gtest.h>

#include <string>

#include "vyn/core/status.h"

namespace {

// Texts typed in by hand, not copied from the code, so that a slip in the
// tables shows.
struct Expected {
  int32_t module;
  int32_t number;
  const char* english;
  const char* german;
};

// A text of the first table, one with an umlaut, the first and the last of the
// largest; the range test below finds a text that sits in the wrong place.
const Expected kSamples[] = {
    {1, 3, "The system log has been started.", "Der System Log wurde gestartet."},
    {9, 4, "The timout configuration of the serial port could not be written.",
     "Die Timeout Konfiguration der seriellen Schnittstelle konnte nicht geschrieben werden."},
    {13, 1, "The directory for the dumpfile can not be created.",
     "Das Verzeichnis f\xFCr die Dumpdatei konnte nicht erzeugt werden."},
    {15, 1, "The file could not be opened: ", "Die Logdatei konnte nicht erzeugt werden."},
    {15, 32, "The Go command has been sent.", "Das Go Kommando wurde gesendet."},
};

// Every module with its highest text number and the gaps in its numbering.
struct ModuleRange {
  int32_t module;
  int32_t last;
  std::vector<int32_t> gaps;
};

const ModuleRange kModules[] = {
    {1, 4, {}},
    {14, 4, {}},
    {4, 3, {}},
    {5, 2, {}},
    {7, 3, {}},
    {9, 9, {}},
    {13, 21, {10, 11, 12, 13, 14, 15}},
    {15, 32, {10, 11, 12, 13, 14, 15, 26, 27, 28, 29, 30, 31}},
};

TEST(LanguageTest, EnglishByDefaultGermanOnRequest) {
  CVYNLanguage language;
  EXPECT_EQ(language.GetLanguage(), 1);
  for (const Expected& sample : kSamples) {
    EXPECT_STREQ(language.GetString(sample.module, sample.number), sample.english)
        << sample.module << "/" << sample.number;
  }
  EXPECT_EQ(language.SetLanguage(0), VYN_STATUS_SUCCESS);
  EXPECT_EQ(language.GetLanguage(), 0);
  for (const Expected& sample : kSamples) {
    EXPECT_STREQ(language.GetString(sample.module, sample.number), sample.german)
        << sample.module << "/" << sample.number;
  }
  EXPECT_STREQ(language.GetStringVYNSerialPort(5),
               "Die serielle Schnittstelle wurde ge\xF6"
               "ffnet.");
}

TEST(LanguageTest, OddLanguagesAndModulesAndNumbersGiveQuestionMarks) {
  CVYNLanguage language;
  for (int32_t odd : {7, -1, 3, 1000}) {
    language.SetLanguage(0);
    EXPECT_EQ(language.SetLanguage(odd), VYN_STATUS_SUCCESS);
    EXPECT_EQ(language.GetLanguage(), 1) << odd;
  }
  language.SetLanguage(2);
  EXPECT_EQ(language.GetLanguage(), 2);
  EXPECT_STREQ(language.GetString(1, 3), "???");
  EXPECT_STREQ(language.GetStringVYNThreadMonitor(1), "???");

  for (int32_t lang : {0, 1}) {
    language.SetLanguage(lang);
    for (int32_t module : {0, 2, 3, 6, 8, 10, 11, 12, 16, 100, -1}) {
      EXPECT_STREQ(language.GetString(module, 1), "???") << module;
    }
    for (const ModuleRange& range : kModules) {
      for (int32_t number = -2; number <= range.last + 3; ++number) {
        const bool gap =
            number < 1 || number > range.last ||
            std::find(range.gaps.begin(), range.gaps.end(), number) != range.gaps.end();
        const std::string text = language.GetString(range.module, number);
        EXPECT_EQ(text == "???", gap) << range.module << "/" << number << ": " << text;
      }
    }
    // Modules 1 and 14 are one table.
    for (int32_t number = 0; number <= 5; ++number) {
      EXPECT_EQ(language.GetString(1, number), language.GetString(14, number));
    }
  }
}

}  // namespace
