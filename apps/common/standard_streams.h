// What every program of this project does about its standard streams before anything else.
#pragma once

namespace kavrel_programs {

/// Makes a gone standard output an ordinary write error instead of the program's end, and keeps
/// files and sockets off descriptors 0 to 2 when the program was started with one of them closed: a
/// message for people would else be written into a connection. A closed standard output stays
/// unwritable. To be called first, with no other thread.
void ProtectStandardStreams();

}  // namespace kavrel_programs
