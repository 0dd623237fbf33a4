// The plug-in exports REALPluginMain and nothing else.
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

TEST(Exports, OnlyREALPluginMain) {
  std::string command = std::string("nm -D --defined-only ") + VEK_PLUGIN_PATH;
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string symbols;
  char line[512];
  while (fgets(line, sizeof line, pipe) != nullptr) {
    std::string text(line);
    symbols += text.substr(text.find_last_of(' ') + 1);
  }
  ASSERT_EQ(pclose(pipe), 0) << command;
  EXPECT_EQ(symbols, "REALPluginMain\n");
}
