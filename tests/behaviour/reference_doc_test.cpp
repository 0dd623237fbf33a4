// Every declaration the plug-in registers appears, word for word, in the
// method reference.
#include <fstream>
#include <sstream>

#include "tests/support/plugin_test.h"

namespace {
std::string reference_text() {
  std::ifstream in(VEK_REFERENCE_PATH);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(Reference, DocumentsEveryRegisteredDeclaration) {
  const std::string reference = reference_text();
  ASSERT_FALSE(reference.empty()) << VEK_REFERENCE_PATH;
  SimHost host;
  LoadedPlugin plugin(VEK_PLUGIN_PATH);
  plugin.start(host);
  const Registry& registry = host.registry();

  std::vector<std::string> declarations;
  for (const ClassReg& cls : registry.extensions) {
    for (const MethodReg& m : cls.methods) declarations.push_back(m.declaration);
    for (const PropertyReg& p : cls.properties) declarations.push_back(p.name + " as " + p.type);
  }
  for (const ClassReg& cls : registry.classes) {
    for (const MethodReg& m : cls.methods) declarations.push_back(m.declaration);
    for (const PropertyReg& p : cls.properties) declarations.push_back(p.name + " as " + p.type);
  }
  for (const MethodReg& m : registry.globals) declarations.push_back(m.declaration);
  EXPECT_EQ(declarations.size(), 45u + 1 + 6 + 2);
  for (const std::string& declaration : declarations) {
    EXPECT_NE(reference.find("`" + declaration + "`"), std::string::npos) << "not in the reference: " << declaration;
  }
}
}  // namespace
