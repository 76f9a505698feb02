// A program that uses the state API as it is told, one line at a time on standard input:
//
//   get NAME | set NAME VALUE | watch NAME | unwatch NAME   the property's functions
//   count NAME LAST                                         sets 1, 2, ... LAST
//   put int|bool|string KEY VALUE                           the store itself, as the viewer does
//
// and answers each with a line. Changes are lines of their own: "change of NAME: TYPE VALUE". Ends
// with its input.
#include <glib.h>
#include <kavrel/state_properties.h>
#include <vconf.h>

#include <algorithm>
#include <glib-unix.h>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using kavrel::state::kProperties;
using kavrel::state::PropertyInfo;

const PropertyInfo& Find(const std::string& name) {
  const auto* const found = std::find_if(std::begin(kProperties), std::end(kProperties),
                                         [&](const auto& one) { return one.name == name; });
  if (found == std::end(kProperties)) throw std::runtime_error("no property " + name);
  return *found;
}

std::string ValueOf(const valuenode_s& node) {
  switch (node.type) {
    case KAVREL_VALUE_STRING:
      return std::string("string ") + node.value.strValue;
    case KAVREL_VALUE_INT:
      return "int " + std::to_string(node.value.intValue);
    case KAVREL_VALUE_DOUBLE:
      return "double " + std::to_string(node.value.doubleValue);
    case KAVREL_VALUE_BOOL:
      return "bool " + std::to_string(node.value.boolValue);
    default:
      return "unknown";
  }
}

// This program watches a key once, so that the user data of the first registrant is its own.
void Changed(valuenode_s* node, void* property) {
  std::cout << "change of " << static_cast<const PropertyInfo*>(property)->name << ": "
            << ValueOf(*node) << std::endl;
}

void Get(const PropertyInfo& property) {
  std::cout << "got " << property.name << ' ';
  int number = 0;
  bool locked = false;
  if (property.get_status != nullptr) {
    std::cout << property.get_status();
  } else if (property.get_locked != nullptr) {
    std::cout << property.get_locked(&locked) << ' ' << locked;
  } else {
    std::cout << property.get_number(&number) << ' ' << number;
  }
  std::cout << std::endl;
}

int Set(const PropertyInfo& property, const std::string& value) {
  return property.set_text != nullptr ? property.set_text(value.c_str())
                                      : property.set_number(std::stoi(value));
}

int Count(const PropertyInfo& property, int last) {
  int failures = 0;
  for (int value = 1; value <= last; ++value) failures += property.set_number(value) != 0 ? 1 : 0;
  return failures;
}

int Put(const std::string& type, const std::string& key, const std::string& value) {
  if (type == "int") return vconf_set_int(key.c_str(), std::stoi(value));
  if (type == "bool") return vconf_set_bool(key.c_str(), std::stoi(value));
  return vconf_set_str(key.c_str(), value.c_str());
}

void Obey(const std::string& line) {
  std::istringstream words(line);
  std::string verb;
  std::string name;
  std::string value;
  words >> verb >> name >> value;
  int result = 0;
  if (verb == "get") return Get(Find(name));
  if (verb == "set") {
    result = Set(Find(name), value);
  } else if (verb == "count") {
    result = Count(Find(name), std::stoi(value));
  } else if (verb == "watch") {
    result = Find(name).watch(&Changed, const_cast<PropertyInfo*>(&Find(name)));
  } else if (verb == "unwatch") {
    result = Find(name).unwatch(&Changed);
  } else if (verb == "put") {
    std::string last;
    words >> last;
    result = Put(name, value, last);
  } else {
    throw std::runtime_error("no such command: " + line);
  }
  std::cout << verb << ' ' << name << ' ' << result << std::endl;
}

gboolean ReadCommand(gint /*fd*/, GIOCondition /*condition*/, gpointer loop) {
  std::string line;
  do {
    if (!std::getline(std::cin, line)) {
      g_main_loop_quit(static_cast<GMainLoop*>(loop));
      return G_SOURCE_REMOVE;
    }
    Obey(line);
  } while (std::cin.rdbuf()->in_avail() > 0);
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main() {
  // Unsynchronised, so that in_avail() tells what has been read ahead.
  std::ios::sync_with_stdio(false);
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  g_unix_fd_add(0, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), &ReadCommand, loop);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return 0;
}
