// Texts that a fuzzer found worth keeping: what must hold for every text holds for them.
#include <gtest/gtest.h>

#include "control_check.hpp"

namespace {

TEST(FuzzCorpus, EveryTextIsReadOrRefusedWithWords) {
  control_files::run_directory run;
  run.put_named_files();
  int texts = 0;
  for (const auto& entry : std::filesystem::directory_iterator(KV_SOURCE_DIR "/tests/fuzz/control_file")) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(control_files::complaint(run, text), "") << entry.path();
    ++texts;
  }
  EXPECT_GE(texts, 30);
}

}  // namespace
