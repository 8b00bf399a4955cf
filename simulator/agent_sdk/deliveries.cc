#include "simulator/agent_sdk/deliveries.h"

#include <algorithm>
#include <future>
#include <utility>

#include "simulator/agent_sdk/call_record.h"

namespace simulator {
namespace {

constexpr char kForeignBatch[] = "f0e1d2c3-0000-4000-8000-00000badc0de";

/// A foreign context for callbacks.
char foreignContext[4096];

void* ContextOf(const Delivery& delivery, const Client& client) {
  switch (delivery.context) {
    case Context::kForeign:
      return foreignContext;
    case Context::kNone:
      return nullptr;
    case Context::kOwn:
      break;
  }
  return client.context;
}

/// @return absent for a completion without a batch.
std::optional<std::string> BatchOf(const Delivery& delivery, const Run& run) {
  switch (delivery.batch) {
    case Batch::kPrevious:
      return run.previousBatch;
    case Batch::kForeign:
      return kForeignBatch;
    case Batch::kNone:
      return std::nullopt;
    case Batch::kOwn:
      break;
  }
  return run.batch;
}

/// A text that is valid during one call. It is wiped afterwards, so that tests detect a client that
/// keeps the pointer.
class LentText {
 public:
  explicit LentText(std::optional<std::string> text, std::size_t padding = 0)
      : text_(std::move(text)) {
    if (text_.has_value()) text_->append(padding, ' ');
  }
  ~LentText() {
    if (text_.has_value()) std::fill(text_->begin(), text_->end(), '#');
  }
  LentText(const LentText&) = delete;
  LentText& operator=(const LentText&) = delete;
  const char* Get() const { return text_.has_value() ? text_->c_str() : nullptr; }

 private:
  std::optional<std::string> text_;
};

CallLine LineOf(const Delivery& delivery, const Run& run) {
  const int count = static_cast<int>(delivery.repeat);
  if (delivery.isEvent) return {"event", {}, {}, count, {}, {}, {}, delivery.name};
  return {"completion", {}, delivery.error, count, {}, {}, BatchOf(delivery, run), delivery.result};
}

bool BeginsInsideCall(Moment moment) {
  return moment == Moment::kDuringRegister || moment == Moment::kDuringRun ||
         moment == Moment::kDuringUnregister;
}

}  // namespace

void Deliver(const Delivery& delivery, const Client& client, const Run& run) {
  void* const context = ContextOf(delivery, client);
  Record(LineOf(delivery, run));
  for (unsigned count = 0; count < delivery.repeat; ++count) {
    if (delivery.isEvent) {
      const LentText name(delivery.name);
      const LentText data(delivery.data, delivery.padding);
      client.onProductEvent(context, name.Get(), data.Get());
    } else {
      const LentText batch(BatchOf(delivery, run));
      const LentText result(delivery.result, delivery.padding);
      client.onRan(context, batch.Get(), delivery.error, result.Get());
    }
  }
}

Deliveries::~Deliveries() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isExiting_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void Deliveries::Start(const Delivery& delivery, std::shared_ptr<Client> client,
                       std::shared_ptr<Run> run) {
  std::promise<void> begun;
  std::future<void> hasBegun = begun.get_future();
  threads_.emplace_back([this, delivery, client = std::move(client), run = std::move(run),
                         begun = std::move(begun)]() mutable {
    const bool isDue = AwaitMoment(delivery, *client, *run);
    begun.set_value();
    if (isDue) Deliver(delivery, *client, *run);
  });
  if (BeginsInsideCall(delivery.when)) hasBegun.wait();
}

void Deliveries::FinishRun(Run& run) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    run.hasReturned = true;
  }
  changed_.notify_all();
}

void Deliveries::FinishRegistration(Client& client) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    client.isRegistered = false;
  }
  changed_.notify_all();
}

bool Deliveries::AwaitMoment(const Delivery& delivery, const Client& client, const Run& run) {
  std::unique_lock<std::mutex> lock(mutex_);
  const bool isLate = delivery.when == Moment::kAfterUnregister;
  const auto isOver = [&] { return isExiting_ || (!isLate && !client.isRegistered); };
  if (delivery.when == Moment::kAfterRun) {
    changed_.wait(lock, [&] { return run.hasReturned || isOver(); });
  }
  // On the steady clock, so that no adjustment of the time of day moves a delivery.
  const auto due = std::chrono::steady_clock::now() + delivery.delay;
  changed_.wait_until(lock, due, isOver);
  return isLate || !isOver();
}

}  // namespace simulator
