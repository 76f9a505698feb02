#include "state_fixture.h"

#include <array>
#include <utility>

#include "live_texts.h"

namespace kavrel_test {
namespace {

std::string LineText(const LogEntry& line) {
  return std::to_string(line.priority) + ' ' + line.tag + ' ' + line.file + ": " + line.function +
         " > " + line.text;
}

std::vector<Delivery> the_deliveries;

template <int kSlot>
void RecordCall(valuenode_s* record, void* user_data) {
  Delivery delivery{kSlot, record->type, "", 0, user_data};
  switch (record->type) {
    case KAVREL_VALUE_STRING:
      delivery.text = record->value.strValue;
      break;
    case KAVREL_VALUE_INT:
      delivery.number = record->value.intValue;
      break;
    case KAVREL_VALUE_DOUBLE:
      delivery.number = record->value.doubleValue;
      break;
    case KAVREL_VALUE_BOOL:
      delivery.number = record->value.boolValue;
      break;
    default:
      break;
  }
  the_deliveries.push_back(std::move(delivery));
}

}  // namespace

std::string Info(const std::string& file, const std::string& function, const std::string& text) {
  return LineText({kLogInfo, "kavrel-api", file, function, text});
}

std::string Error(const std::string& file, const std::string& function, const std::string& text) {
  return LineText({kLogError, "kavrel-api", file, function, text});
}

StateTest::StateTest() {
  TakeDeliveries();
  store_.Observe([this](const std::string& call) { timeline_.push_back(call); });
  log_.Observe([this](const LogEntry& line) { timeline_.push_back(LineText(line)); });
}

StateTest::~StateTest() {
  EXPECT_EQ(LiveTexts(), 0U);
}

std::vector<std::string> StateTest::TakeTimeline() {
  return std::exchange(timeline_, {});
}

void PrintTo(const Delivery& delivery, std::ostream* out) {
  *out << "slot " << delivery.slot << " type " << delivery.type << " text \"" << delivery.text
       << "\" number " << delivery.number << " user data " << delivery.user_data;
}

kavrel_value_changed_cb Slot(int slot) {
  static constexpr std::array<kavrel_value_changed_cb, kSlots> all = {
      &RecordCall<0>, &RecordCall<1>, &RecordCall<2>,
      &RecordCall<3>, &RecordCall<4>, &RecordCall<5>};
  return all.at(static_cast<std::size_t>(slot));
}

std::vector<Delivery> TakeDeliveries() {
  return std::exchange(the_deliveries, {});
}

}  // namespace kavrel_test
