/// Where the agent is, and how to reach it.

#pragma once

#include <chrono>
#include <string>

namespace VeloCtl {

struct AgentAddress {
   /// "unix:PATH" or "HOST:PORT"; empty: where an agent listens by default.
   std::string address;
   /// Files in PEM form, for TLS: who signs the agent's certificate; who we are.
   std::string ca;
   std::string certificate;
   std::string key;
   /// How long the agent may take to answer.
   std::chrono::milliseconds timeout{ 10'000 };
};

/// The same with nothing left open and everything checked. Throws a Failure.
AgentAddress checked( AgentAddress given );

} // namespace VeloCtl
