// A separate process for the settings tests: writes or reads values through the same store
// the library opens, so the tests can show what one process leaves for another.
//   settings_tool set <section> <name> <value>
//   settings_tool get <section> <name>            prints the value
//   settings_tool fill <section> <prefix> <count> writes <prefix>0 .. <prefix>count-1
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

int main(int argc, char** argv) {
  using namespace qz;
  if (argc != 5 && !(argc == 4 && std::string(argv[1]) == "get")) {
    std::fprintf(stderr, "usage: settings_tool set|get|fill <section> <name> [value|count]\n");
    return 2;
  }
  std::string verb = argv[1];
  auto store = vblib::Public().settings(from_utf8(argv[2]));
  String name = from_utf8(argv[3]);
  if (verb == "get") {
    std::printf("%s", to_utf8(store->read(vblib::kHkeyCurrentUser, name)).c_str());
  } else if (verb == "set") {
    store->write(vblib::kHkeyCurrentUser, name, from_utf8(argv[4]));
  } else if (verb == "fill") {
    int count = std::atoi(argv[4]);
    for (int i = 0; i < count; ++i)
      store->write(vblib::kHkeyCurrentUser, name + from_utf8(std::to_string(i)),
                   from_utf8("value " + std::to_string(i)));
  } else {
    return 2;
  }
  return 0;
}
