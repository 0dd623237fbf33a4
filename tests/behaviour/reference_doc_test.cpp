// Every declaration the plug-in registers appears, word for word, in the
// method reference, and every name it registers has one row of the Ranges
// table.
#include <fstream>
#include <set>
#include <sstream>

#include "tests/support/plugin_test.h"

namespace {
std::string reference_text() {
  std::ifstream in(VEK_REFERENCE_PATH);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// A declaration's name: the text before its parameters.
std::string name_of(const std::string& declaration) { return declaration.substr(0, declaration.find('(')); }

struct Registered {
  std::vector<std::string> declarations;
  std::set<std::string> names;
};

Registered registered() {
  SimHost host;
  LoadedPlugin plugin(VEK_PLUGIN_PATH);
  plugin.start(host);
  const Registry& registry = host.registry();
  Registered r;
  auto add_class = [&](const ClassReg& cls) {
    for (const MethodReg& m : cls.methods) {
      r.declarations.push_back(m.declaration);
      r.names.insert(name_of(m.declaration));
    }
    for (const PropertyReg& p : cls.properties) {
      r.declarations.push_back(p.name + " as " + p.type);
      r.names.insert(p.name);
    }
  };
  for (const ClassReg& cls : registry.extensions) add_class(cls);
  for (const ClassReg& cls : registry.classes) add_class(cls);
  for (const MethodReg& m : registry.globals) {
    r.declarations.push_back(m.declaration);
    r.names.insert(name_of(m.declaration));
  }
  return r;
}

TEST(Reference, DocumentsEveryRegisteredDeclaration) {
  const std::string reference = reference_text();
  ASSERT_FALSE(reference.empty()) << VEK_REFERENCE_PATH;
  const Registered r = registered();
  EXPECT_EQ(r.declarations.size(), 45u + 1 + 6 + 2);
  for (const std::string& declaration : r.declarations) {
    EXPECT_NE(reference.find("`" + declaration + "`"), std::string::npos) << "not in the reference: " << declaration;
  }
}

// The names in backquotes in the first cell of each row of the table under
// "## Ranges".
std::vector<std::set<std::string>> ranges_rows(const std::string& reference) {
  std::vector<std::set<std::string>> rows;
  const size_t heading = reference.find("\n## Ranges\n");
  if (heading == std::string::npos) return rows;
  std::istringstream lines(reference.substr(heading + 1));
  std::string line;
  bool in_table = false;
  while (std::getline(lines, line)) {
    if (!line.starts_with("|")) {
      if (in_table) break;
      continue;
    }
    in_table = true;
    const std::string cell = line.substr(1, line.find('|', 1) - 1);
    std::set<std::string> names;
    for (size_t open = cell.find('`'); open != std::string::npos; open = cell.find('`', open + 1)) {
      size_t close = cell.find('`', open + 1);
      if (close == std::string::npos) break;
      names.insert(cell.substr(open + 1, close - open - 1));
      open = close;
    }
    if (!names.empty()) rows.push_back(names);
  }
  return rows;
}

TEST(Reference, RangesTableHasOneRowPerName) {
  const std::vector<std::set<std::string>> rows = ranges_rows(reference_text());
  ASSERT_FALSE(rows.empty()) << "no table under \"## Ranges\"";
  const Registered r = registered();
  EXPECT_EQ(r.names.size(), 43u + 1 + 6 + 2);  // MidVEK and CopyBytesVEK have two declarations each
  for (const std::string& name : r.names) {
    int found = 0;
    for (const auto& row : rows) found += static_cast<int>(row.count(name));
    EXPECT_EQ(found, 1) << name << " is in " << found << " rows of the Ranges table";
  }
  for (const auto& row : rows) {
    for (const std::string& name : row) EXPECT_EQ(r.names.count(name), 1u) << "not registered: " << name;
  }
}
}  // namespace
