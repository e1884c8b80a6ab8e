#include "kalvaris_params.hpp"

#include <cstdlib>
#include <utility>

namespace kalvaris_params {

namespace {

/// Every array of a reflection list, so that none is forgotten when the list changes its length or its order.
template <class F>
void for_each_array(reflection_list& r, F&& f) {
  const auto all = [&](auto&... array) { (f(array), ...); };
  all(r.irefs, r.mlt, r.ihkl, r.spec_ref, r.icod, r.hw, r.pos, r.lp, r.dspacing, r.halfg, r.halfl, r.gam, r.ggi, r.cci,
      r.sl_i, r.dl_i, r.ff, r.corr, r.phasen, r.asfa, r.bsfa, r.iobs, r.icalc);
}

constexpr int phases_per_sign = 8;  ///< phases above that are told by the sign of the word
constexpr int index_offset = 128;

}  // namespace

void reflection_list::resize(std::size_t n) {
  for_each_array(*this, [n](auto& array) { array.resize(n); });
}

void reflection_list::permute(const std::vector<int>& order) {
  for_each_array(*this, [&order](auto& array) {
    auto former = array;
    for (std::size_t i = 0; i < order.size(); ++i) array[i] = former[static_cast<std::size_t>(order[i])];
  });
}

void state_type::tell(notice said) {
  if (!io.only_looking) {
    std::string line = (said.warning ? "Warning! " : "Note: ") + said.text;
    if (!said.advice.empty()) line += (line.ends_with('.') ? " " : ". ") + said.advice;
    kalvaris_inout::mess_cons(io, line);
    kalvaris_inout::out(io, kalvaris_inout::unit::listing) << " => " << line << '\n';
  }
  notices.push_back(std::move(said));
}

std::int32_t pack_irefs(const reflection_key& key) {
  const bool upper = key.phase >= phases_per_sign;
  const int p = key.phase + 1 - (upper ? phases_per_sign : 0);
  const std::int32_t word = (p << 27) + (key.wave << 24) + ((key.h + index_offset) << 16) +
                            ((key.k + index_offset) << 8) + (key.l + index_offset);
  return upper ? -word : word;
}

reflection_key unpack_irefs(std::int32_t word) {
  const std::int32_t w = std::abs(word);
  reflection_key key;
  key.phase = (w >> 27) - 1 + (word < 0 ? phases_per_sign : 0);
  key.wave = (w >> 24) & 7;
  key.h = ((w >> 16) & 255) - index_offset;
  key.k = ((w >> 8) & 255) - index_offset;
  key.l = (w & 255) - index_offset;
  return key;
}

}  // namespace kalvaris_params
