#include "host/composition/StoreFollower.h"

#include "host/composition/AgentLog.h"
#include "kel/Trace.h"

namespace Host {

static Kel::TraceHandle storeFollowerTrace("StoreFollower");

namespace {

// Lower runs first: changes that managers wait for precede housekeeping.
constexpr int turnEndPriority = 0;
constexpr int followPriority = 1;
constexpr int scrubPriority = 9;
constexpr Kel::Seconds pollInterval = 1.0;
constexpr Kel::Seconds scrubInterval = 60.0;
// Documents and records in one step; between steps the task asks whether to yield.
constexpr std::size_t followStep = 50;
constexpr std::size_t scrubStep = 500;

}  // namespace

StoreFollower::StoreFollower(EventLoop& loop, const Kel::Ptr<Brev::TaskScheduler>& scheduler,
                             const Kel::Ptr<Kel::Dir>& root, const std::string& storeDirectory)
    : loop_(loop),
      mount_(Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{storeDirectory})),
      manager_(Kel::makePtr<Varnix::EntityManager>(root->dirIs("Varnix"), mount_)),
      tables_(Kel::makePtr<Quillo::TableFollower>(mount_)),
      arpTable_(Kel::makePtr<Quillo::ArpTableMount>(tables_)),
      scrubber_(mount_),
      followTask_(Kel::makePtr<Brev::Task>(scheduler, "store changes", followPriority,
                                           [this](Brev::Task& task) { follow(task); })),
      pollTimer_(Kel::makePtr<Brev::TimerTask>(scheduler, "store poll", followPriority,
                                               [this](Brev::Task&) { followTask_->scheduleTask(); })),
      scrubTask_(Kel::makePtr<Brev::Task>(scheduler, "store scrub", scrubPriority,
                                          [this](Brev::Task& task) { scrub(task); })),
      scrubTimer_(Kel::makePtr<Brev::TimerTask>(scheduler, "store scrub timer", scrubPriority,
                                                [this](Brev::Task&) { scrubTask_->scheduleTask(); })) {
  manager_->setQuilloMount(Kel::makePtr<KelQuillo::StoreMount>(tables_, tree().vrfNameStatus));
  followTurns(scheduler);
  if (mount_->doorbellFd() >= 0) loop_.addFd(mount_->doorbellFd(), [this] { followTask_->scheduleTask(); });
  pollTimer_->scheduleTaskPeriodic(pollInterval);
  scrubTimer_->scheduleTaskPeriodic(scrubInterval);
  followTask_->scheduleTask();
}

StoreFollower::~StoreFollower() {
  loop_.onTurnEnd({});
  mount_->setTurnHandler({});
  mount_->turnEnds();
  if (mount_->doorbellFd() >= 0) loop_.removeFd(mount_->doorbellFd());
}

void StoreFollower::followTurns(const Kel::Ptr<Brev::TaskScheduler>& scheduler) {
  if (loop_.onTurnEnd([this] { mount_->turnEnds(); })) {
    mount_->setTurnHandler([] {});
    return;
  }
  turnEndTask_ = Kel::makePtr<Brev::Task>(scheduler, "store turn end", turnEndPriority,
                                          [this](Brev::Task&) { mount_->turnEnds(); });
  mount_->setTurnHandler([this] { turnEndTask_->scheduleTask(); });
}

void StoreFollower::follow(Brev::Task& task) {
  QTRACE_ENTRY(storeFollowerTrace, this);
  // Drain the doorbell before reading the head, so that each later commit rings again.
  mount_->drainDoorbell();
  mount_->refresh();
  while (step()) {
    if (task.taskShouldYield()) {
      task.scheduleTask();
      return;
    }
  }
  // Where damage was met there may be more, which leads searches astray.
  if (std::exchange(damageSeen_, mount_->corruptionCount()) != mount_->corruptionCount())
    scrubTask_->scheduleTask();
  reportStatus();
}

bool StoreFollower::step() {
  return manager_->step(followStep) || tables_->step(followStep, manager_->bookmark());
}

void StoreFollower::scrub(Brev::Task& task) {
  while (scrubber_.step(scrubStep) == Quillo::Scrubber::Outcome::more) {
    if (task.taskShouldYield()) {
      task.scheduleTask();
      return;
    }
  }
}

void StoreFollower::reportStatus() {
  const auto& status = manager_->status();
  if (status == reported_) return;
  if (status.empty()) {
    logInfo("the state of the store at {} is served", mount_->directory());
  } else if (mount_->state() == Quillo::Mount::State::refused) {
    logError("{}", status);
  } else {
    logInfo("{}", status);
  }
  reported_ = status;
}

}  // namespace Host
