// ThreadSanitizer suppressions for the agent's tests that run gRPC.
//
// Debian's gRPC, abseil, protobuf and OpenSSL libraries are not built with
// ThreadSanitizer, so the synchronisation inside them (their mutexes,
// atomics and completion queues) is invisible to it: every object handed
// from one thread to another through gRPC (requests deserialised on one
// callback thread and read on another, reactors created and run on
// different threads, messages written from the event loop and released on
// a callback thread) would be reported as a race. These patterns suppress
// reports in which a frame lies in those libraries; races between threads
// that synchronise through the agent's own mutexes and queues (event loop,
// stream channels, the tests' threads) are still reported.
//
// Linked into every agent test; without ThreadSanitizer the function is
// never called.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libgrpc.so\n"
         "called_from_lib:libgrpc++.so\n"
         "called_from_lib:libgpr.so\n"
         "called_from_lib:libprotobuf.so\n"
         "race:libgrpc.so\n"
         "race:libgrpc++.so\n"
         "race:libgpr.so\n"
         "race:libabsl_\n"
         "race:libprotobuf.so\n"
         "race:libupb.so\n"
         "race:libcares.so\n"
         // gRPC's TLS hands OpenSSL's record buffers between its threads.
         "called_from_lib:libcrypto.so\n"
         "called_from_lib:libssl.so\n"
         "race:libcrypto.so\n"
         "race:libssl.so\n"
         // The client's status text is written by gRPC's poller thread (in
         // uninstrumented code whose stack ends in libstdc++) and read by
         // the caller after the completion queue hands the call back.
         "race:grpc::internal::CallOpClientRecvStatus::FinishOp\n"
         // gRPC's own worker threads may still be winding down at exit.
         "thread:libgpr.so\n";
}
