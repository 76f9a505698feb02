// The reference of start_client: a C++ program that links nothing of ours.
#include <string>

int main(int argc, char** argv) {
  return std::string(argv[argc - 1]).empty() ? 1 : 0;
}
