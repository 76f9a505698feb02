# What the benchmarks call by Cap'n Proto RPC.
@0xb6a1f0c3d2e49587;

interface Viewer {
  getWindowSize @0 () -> (size :Int32, result :Bool);
  # Calls that are not answered one by one.
  show @1 (number :Int32, first :Text, second :Text);
}
