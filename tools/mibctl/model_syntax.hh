// What a published document says about a parameter's values, and what becomes of it here.
#pragma once
#include <string>
#include <vector>

#include "model.hh"
#include "model_document.hh"

namespace mibctl {

struct Primitive;

// A type as used by one parameter.
struct Syntax {
  const Primitive* primitive = nullptr;  // null: no type given
  std::string source;                    // the type's name in the model
  std::vector<Part> holders;             // elements with facets, the one that counts most first
  Part list;                             // <list>, where the type is one
  Part defval;                           // <default>, where there is one
};

// Reads a <syntax>; follows named data types down to a primitive one.
Syntax read_syntax(Library& library, const Part& part);

// Puts what was given anew in place of what was there.
void amend(Syntax& syntax, const Syntax& given);

// The QMIBTREE_TYPE_* of its values.
uint32_t type_of(const Syntax& syntax);

// Sets an entry's type, bounds and default. What gets lost is noted.
void apply_syntax(Library& library, const Syntax& syntax, Entry& entry, std::vector<Note>& notes);

}  // namespace mibctl
