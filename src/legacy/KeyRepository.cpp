// Names and log texts of this class are contract.
#include "KeyRepository.h"

#include <algorithm>

#include "ChannelLog.h"

using kavrel::Here;

CKeyRepository::CKeyRepository() = default;
CKeyRepository::CKeyRepository(const CKeyRepository& other) = default;
CKeyRepository::CKeyRepository(CKeyRepository&& other) noexcept = default;
CKeyRepository& CKeyRepository::operator=(const CKeyRepository& other) = default;
CKeyRepository& CKeyRepository::operator=(CKeyRepository&& other) noexcept = default;
CKeyRepository::~CKeyRepository() = default;

void CKeyRepository::AddKey(const std::string& keyName) {
  if (std::find(keys_.begin(), keys_.end(), keyName) != keys_.end()) {
    CHANNEL_INFO(Here(), "key has already added\n");
    return;
  }
  CHANNEL_INFO(Here(), "Key [%.256s] is added\n", keyName.c_str());
  keys_.push_back(keyName);
}

void CKeyRepository::RemoveKey(const std::string& keyName) {
  const auto found = std::find(keys_.begin(), keys_.end(), keyName);
  if (found == keys_.end()) return;
  // The name may be the entry itself, so it is logged before it goes.
  CHANNEL_INFO(Here(), "Key [%.256s] is removed\n", keyName.c_str());
  keys_.erase(found);
}

void CKeyRepository::RemoveAllKey() {
  keys_.clear();
}

bool CKeyRepository::IsRegistered(const std::string& keyName) const {
  const bool registered = std::find(keys_.begin(), keys_.end(), keyName) != keys_.end();
  if (registered) {
    CHANNEL_INFO(Here(), "%.256s key is registered\n", keyName.c_str());
  } else {
    CHANNEL_INFO(Here(), "%.256s key is not registered\n", keyName.c_str());
  }
  return registered;
}

std::string CKeyRepository::GetKey(int index) const {
  if (index < 0 || index >= Size()) {
    CHANNEL_ERROR(Here(), "Index is not valid\n");
    return std::string();
  }
  return keys_[static_cast<std::size_t>(index)];
}

int CKeyRepository::Size() const {
  return static_cast<int>(keys_.size());
}
