#pragma once

#include <functional>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "panel/names.h"

/// The addresses that one command was given. Any thread.
namespace brisq_panel {

/// Takes them apart, in the order given.
/// @throws mgr_err::Error "value" as ParseAddress, which of several it is in front of the object;
/// with object "mailbox" for one that is given twice, in whatever form
BRISQ_API std::vector<Address> ParseAddresses(const std::vector<std::string>& texts);

/// Calls `work` with each. Says of an error of type "value", "limit", "missed", "exists" or "email"
/// whose it is when it does not say so itself.
/// @throws what work throws
BRISQ_API void ForEachAddress(const std::vector<Address>& addresses,
                              const std::function<void(const Address&)>& work);

/// Does `work`, which refuses things of one object: an error of type "value" or "limit" gets its
/// name in front of the object, "THING: OBJECT", when it does not hold it yet.
/// @param kind, name  such as "domain" and "example.org"
/// @throws what work throws
BRISQ_API void InNameOf(const std::string& kind, const std::string& name,
                        const std::function<void()>& work);

}  // namespace brisq_panel
