// What the plug-in registers, read from its records word by word.
#include "host/sim_host.h"
#include "host/sim_host_objects.h"

namespace sim {

MethodReg readMethod(const void* record, size_t words) {
  MethodReg method;
  method.function = loadPointer(record, 0);
  method.setter = loadPointer(record, 1);
  method.declaration = loadText(record, 2);
  method.flags = loadInteger(record, 3);
  if (words > 4) {
    method.word4 = loadWord(record, 4);
    method.word5 = loadWord(record, 5);
  }
  method.recordWords = loadWords(record, words);
  return method;
}

std::vector<MethodReg> readMethods(const void* table, int32_t count, size_t words) {
  std::vector<MethodReg> methods;
  for (int32_t i = 0; table != nullptr && i < count; ++i) methods.push_back(readMethod(recordAt(table, i, words), words));
  return methods;
}

std::vector<PropertyReg> readProperties(const void* table, int32_t count, size_t words) {
  std::vector<PropertyReg> properties;
  for (int32_t i = 0; table != nullptr && i < count; ++i) {
    const void* record = recordAt(table, i, words);
    PropertyReg property;
    property.name = loadText(record, 1);
    property.type = loadText(record, 2);
    property.flags = loadInteger(record, 3);
    property.getter = loadPointer(record, 4);
    property.setter = loadPointer(record, 5);
    property.recordWords = loadWords(record, words);
    properties.push_back(std::move(property));
  }
  return properties;
}

}  // namespace sim

using namespace sim;

// -- registration ---------------------------------------------------------------

void SimHost::registerClassRecord(void* record, bool isExtension) {
  const char* service = isExtension ? "PluginRegisterClassExtension" : "PluginRegisterClass";
  if (record == nullptr) {
    noteInvalid(service, "a null record");
    return;
  }
  const int32_t version = loadInteger(record, 0);
  if (version < 9 || version > 13) {
    ++registry_.rejectedRecords;
    return;
  }
  const RecordLayout& layout = version == 9 ? kVersion9Layout : kCurrentLayout;
  if (!isExtension) storeWord(record, 4, kInstanceDataOffset);
  ClassReg registered;
  registered.recordVersion = version;
  registered.name = loadText(record, 1);
  registered.dataSize = loadInteger(record, 3);
  registered.dataOffset = loadInteger(record, 4);
  registered.dispose = loadPointer(record, 6);
  registered.properties = readProperties(loadPointer(record, 7), loadInteger(record, 8), layout.propertyWords);
  registered.methods = readMethods(loadPointer(record, 9), loadInteger(record, 10), layout.methodWords);
  registered.flags = loadInteger(record, 20);
  registered.recordWords = loadWords(record, layout.classWords);
  registered.record = record;
  (isExtension ? registry_.extensions : registry_.classes).push_back(std::move(registered));
}

