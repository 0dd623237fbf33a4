// A library that is not a plug-in: it has no REALPluginMain.
extern "C" int not_a_plugin() { return 0; }
