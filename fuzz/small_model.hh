// The model that documents and overlays are tried on: each kind of parameter, and two tables.
#pragma once
#include "../tests/mibctl/box_model.hh"
#include "input.hh"
#include "model.hh"

inline mibctl::Model small_model() {
  const InputFile file(reinterpret_cast<const uint8_t*>(mibctl::kBoxModel),
                       sizeof mibctl::kBoxModel - 1);
  return mibctl::read_model({file.path()});
}

inline mibctl::Model small_model_with_overlay() {
  const InputFile file(reinterpret_cast<const uint8_t*>(mibctl::kBoxOverlay),
                       sizeof mibctl::kBoxOverlay - 1);
  mibctl::Model model = small_model();
  mibctl::apply_overlay(model, file.path());
  mibctl::complete(model);
  mibctl::Lock lock;
  mibctl::assign_ids(model, lock);
  return model;
}
