#include "Message.h"

#include <algorithm>

CMessage::CMessage() = default;
CMessage::CMessage(const CMessage& other) = default;
CMessage::CMessage(CMessage&& other) noexcept = default;
CMessage& CMessage::operator=(const CMessage& other) = default;
CMessage& CMessage::operator=(CMessage&& other) noexcept = default;
CMessage::~CMessage() = default;

void CMessage::AddValue(const char* key, const char* value) {
  if (key == nullptr || value == nullptr) return;
  pairs_.emplace_back(key, value);
}

int CMessage::Size() const {
  return static_cast<int>(pairs_.size());
}

const CMessage::Pair* CMessage::At(int index) const {
  return index >= 0 && index < Size() ? &pairs_[static_cast<std::size_t>(index)] : nullptr;
}

std::string CMessage::GetKey(int index) const {
  const Pair* pair = At(index);
  return pair == nullptr ? std::string() : pair->first;
}

std::string CMessage::GetValue(int index) const {
  const Pair* pair = At(index);
  return pair == nullptr ? std::string() : pair->second;
}

std::string CMessage::GetValue(const char* key) const {
  if (key == nullptr) return {};
  const auto found = std::find_if(pairs_.begin(), pairs_.end(),
                                  [key](const Pair& pair) { return pair.first == key; });
  return found == pairs_.end() ? std::string() : found->second;
}
