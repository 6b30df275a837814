// Contexts and modules: who is entered when, in which order, and left in the reverse one.

#include <gmock/gmock.h>

#include <memory>

#include "kel/Errors.h"
#include "snmp/CBoundary.h"
#include "snmp/Contexts.h"
#include "snmp/HandlerRegistration.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RecordingModule : public Snmp::HandlerRegistration {
 public:
  RecordingModule(const char* name, std::vector<Kel::String>& log) : name_(name), log_(log) {}
  void initHandler(Kel::String context) override {
    log_.push_back("+" + Kel::String(name_) + "@" + context);
    Snmp::registerMibContext(context, name_);
  }
  void exitHandler(Kel::String context) override {
    log_.push_back("-" + Kel::String(name_) + "@" + context);
    Snmp::unregisterMibContext(context, name_);
  }
  const char* name() const override { return name_; }

 private:
  const char* name_;
  std::vector<Kel::String>& log_;
};

TEST(Framework, modulesEnterByNameAndLeaveInReverseWhatTheyEntered) {
  std::vector<Kel::String> log;
  RecordingModule vrf("VrfBase", log), ip("IpBase", log), late("Late", log);
  const Snmp::AutoRegistree vrfRegistree(&vrf), ipRegistree(&ip);
  Snmp::Contexts contexts;
  EXPECT_THROW(contexts.enter("red"), Kel::RangeException) << "the default context comes first";
  contexts.enter("");
  EXPECT_THROW(contexts.enter(Kel::String("r\0d", 3)), Kel::RangeException);
  auto lateRegistree = std::make_unique<Snmp::AutoRegistree>(&late);
  for (const auto* context : {"red", "red", "blue"}) contexts.enter(context);
  EXPECT_THAT(log, ElementsAre("+IpBase@", "+VrfBase@", "+IpBase@red", "+Late@red", "+VrfBase@red", "+IpBase@blue",
                               "+Late@blue", "+VrfBase@blue"));
  EXPECT_THAT(Snmp::mibContexts(), ElementsAre("", "blue", "red"));
  EXPECT_THAT(Snmp::mibContextModules("red"), ElementsAre("IpBase", "Late", "VrfBase"));
  log.clear();
  for (int i = 0; i < 2; ++i) contexts.leave("red");
  EXPECT_THAT(contexts.names(), ElementsAre("", "blue"));
  EXPECT_THAT(Snmp::mibContextModules("red"), IsEmpty());
  contexts.leave("");
  EXPECT_THAT(log, ElementsAre("-VrfBase@red", "-Late@red", "-IpBase@red", "-VrfBase@blue", "-Late@blue",
                               "-IpBase@blue", "-VrfBase@", "-IpBase@"));
  lateRegistree.reset();
  log.clear();
  {
    Snmp::Contexts others;
    others.enter("");
  }
  EXPECT_THAT(log, ElementsAre("+IpBase@", "+VrfBase@", "-VrfBase@", "-IpBase@"));
}

TEST(CBoundary, exceptionsStayOnTheirSide) {
  static Kel::TraceHandle traceHandle("CBoundaryTest");
  std::vector<Kel::String> lines;
  const auto previous = Kel::TraceConfig::setSink(
      [&](const Kel::TraceHandle&, unsigned, const std::string& text) { lines.push_back(text); });
  EXPECT_EQ(Snmp::atCBoundary(traceHandle, "calm", 5, [] { return 0; }), 0);
  EXPECT_EQ(Snmp::atCBoundary(traceHandle, "raising", 5, []() -> int { throw Kel::RangeException("too far"); }), 5);
  Snmp::atCBoundary(traceHandle, "odd", [] { throw 7; });
  Kel::TraceConfig::setSink(previous);
  EXPECT_THAT(lines, ElementsAre("raising: too far", "odd: unknown exception"));
}

}  // namespace
