// A document's values without a model: only what is stored is known.
#pragma once
#include <string>

namespace mibctl {

// The value that a document stores for a full name. Throws (refused) when it stores none, or when a
// load would not take the text as it stands, and (storage, about `document_name`) for a document
// that does not load.
std::string stored_value(const std::string& document_name, const std::string& document,
                         const std::string& name);

}  // namespace mibctl
