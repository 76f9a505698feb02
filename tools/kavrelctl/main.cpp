// kavrelctl: the viewer from the command line.
#include <standard_streams.h>

#include <exception>

#include "output.h"
#include "program.h"
#include "settings.h"

int main(int argc, char** argv) {
  kavrel_programs::ProtectStandardStreams();
  try {
    return kavrelctl::Run(argc, argv);
  } catch (const std::exception& error) {
    kavrelctl::PrintError(error.what());
    return kavrelctl::kFailed;
  }
}
