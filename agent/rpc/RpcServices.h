/// The services of the agent, all of them, made and owned in one place.
///
/// Each service is made by a function of its own header, so that the generated code is compiled
/// where that service is and nowhere else.
///
/// Owner      the agent; outlives the server
/// Thread     made and destroyed on the event loop

#pragma once

#include <chrono>
#include <memory>
#include <vector>

namespace grpc {
class Service;
}

namespace VeloAgent {

class EventLoop;
class Inspection;
class Managers;
class MplsStreams;
class PbrFanout;
class PbrStreams;
class Recorder;
class TreeWriter;

class RpcServices {
 public:
   /// What the services serve. All of it outlives them.
   struct Parts {
      EventLoop & loop;
      Managers & managers;
      TreeWriter & writer;
      const PbrFanout & pbrFanout;
      PbrStreams & pbrStreams;
      MplsStreams & mplsStreams;
      const Inspection & inspection;
      /// A resync that was silent for so long gives way to another client's.
      std::chrono::milliseconds resyncPatience;
      Recorder * recorder = nullptr; ///< Null: nobody writes down what is published.
   };

   explicit RpcServices( const Parts & parts );
   ~RpcServices();

   /// For the server to register.
   std::vector< grpc::Service * > all() const;

 private:
   std::vector< std::unique_ptr< grpc::Service > > services_;
};

} // namespace VeloAgent
