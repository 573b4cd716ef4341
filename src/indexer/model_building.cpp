#include "indexer/model_building.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "models/symbol.h"

namespace quarry::indexer {

void add_module_definitions(FileModel& model, ModelStore& store, std::string_view name) {
  const std::string_view fqn = store.copy(model.module);
  model.definitions.push_back(
      {store.name(name), symbol_kind::MODULE, fqn, 1, 1, std::nullopt, false, nullptr, -1});
  model.definitions.push_back({"<toplevel>", TOPLEVEL_KIND,
                               store.copy(model.module + ".<toplevel>"), 1, 1, std::nullopt, false,
                               nullptr, -1});
  model.scopes.push_back({Scope::Kind::module, -1, TOPLEVEL_DEFINITION, -1, fqn, {}, {}});
}

void keep_bindings(Scope& scope, const BindingMap& bindings, ModelStore& store) {
  std::vector<NamedBinding> named;
  named.reserve(bindings.size());
  for (const auto& [name, binding] : bindings)
    named.push_back({name, binding});
  scope.bindings = store.copy(named);
  if (named.size() <= MAX_SCOPE_SCAN) return;
  std::vector<std::uint32_t> by_name(named.size());
  for (std::uint32_t i = 0; i < by_name.size(); ++i)
    by_name[i] = i;
  std::ranges::sort(by_name, {}, [&](std::uint32_t i) { return named[i].name; });
  scope.by_name = store.copy(by_name);
}

Binding imported_binding(ModelStore& store, Binding::Kind kind, std::string_view module,
                         std::string_view name) {
  Binding binding{kind, false, -1};
  binding.details =
      store.copy_one(Binding::Details{.module = store.name(module), .name = store.name(name)});
  return binding;
}

void bind_also(ModelStore& store, Binding& binding, int definition) {
  Binding::Details details = binding.details ? *binding.details : Binding::Details{};
  details.also = store.append(details.also, definition);
  binding.details = store.copy_one(details);
}

std::string_view member_fqn(ModelStore& store, std::string_view scope_fqn, std::string_view name) {
  std::string fqn(scope_fqn);
  fqn += '.';
  fqn += name;
  return store.copy(fqn);
}

Chain builtin_chain(ModelStore& store) {
  const std::string_view builtin = BUILTIN_VALUE;
  return store.chain(std::span<const std::string_view>(&builtin, 1));
}

void add_hints(std::vector<TypeHint>& to, std::vector<TypeHint> from) {
  for (TypeHint& hint : from) {
    if (to.size() >= MAX_TYPE_HINTS) return;
    if (std::find(to.begin(), to.end(), hint) == to.end()) to.push_back(std::move(hint));
  }
}

void add_hints(ModelStore& store, std::span<const TypeHint>& to, std::vector<TypeHint> from) {
  std::vector<TypeHint> hints(to.begin(), to.end());
  add_hints(hints, std::move(from));
  if (hints.size() != to.size()) to = store.copy(hints);
}

std::span<const TypeHint>& attribute_hints(ModelStore& store, Definition& cls,
                                           std::string_view name) {
  auto attribute = std::ranges::find(cls.attributes, name, &Attribute::name);
  if (attribute == cls.attributes.end()) {
    attribute = cls.attributes.insert(attribute, {store.name(name), {}});
  }
  return attribute->hints;
}

void shrink_model(FileModel& model) {
  model.definitions.shrink_to_fit();
  model.scopes.shrink_to_fit();
  model.uses.shrink_to_fit();
  model.string_uses.shrink_to_fit();
}

}  // namespace quarry::indexer
