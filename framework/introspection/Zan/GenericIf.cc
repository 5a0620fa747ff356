#include "Zan/GenericIf.h"

#include <algorithm>

#include "Zan/Entity.h"

namespace Zan {

namespace {

/// How what has no name is named.
std::string numbered(std::size_t number) {
  return '#' + std::to_string(number);
}

/// The arguments of a form, each in its place; throws for one that is not known, given twice or missing.
std::vector<Value> inOrder(std::string_view what, std::span<const ArgumentRow> rows,
                           const std::vector<NamedArgument>& arguments) {
  std::vector<Value> values(rows.size());
  std::vector<bool> given(rows.size());
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const NamedArgument& argument = arguments[i];
    const auto named = std::find_if(rows.begin(), rows.end(),
                                    [&](const ArgumentRow& row) { return row.name == argument.name; });
    const std::size_t place = argument.name.empty() ? i : static_cast<std::size_t>(named - rows.begin());
    if (place >= rows.size() || given[place]) {
      throw UnknownArgumentException(what, argument.name.empty() ? numbered(i + 1) : argument.name);
    }
    values[place] = argument.value;
    given[place] = true;
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (!given[i]) throw MissingArgumentException(what, rows[i].name);
  }
  return values;
}

/// Runs `action`; a value that it could not convert is refused in the name of `attribute`. What `action`
/// calls may use reflection too: its refusals have names already.
template <class Action>
Value about(std::string_view attribute, Action action) {
  try {
    return action();
  } catch (const TypeException& e) {
    if (!e.attribute().empty()) throw;
    throw TypeException(e.subject(), e.found(), attribute);
  }
}

template <class Function>
Function required(const AttributeRow& row, Function function) {
  if (!function) throw OperationNotSupportedException(row.name);
  return function;
}

/// `missing` names the first argument that there must be beyond those given.
void requireArguments(const AttributeRow& row, Arguments arguments, std::size_t n,
                      std::string_view missing = {}) {
  if (arguments.size() < n) throw MissingArgumentException(row.name, missing);
  if (arguments.size() > n) throw UnknownArgumentException(row.name, numbered(n + 1));
}

/// Runs `action` with the one argument, an index.
template <class Action>
Value withIndex(const AttributeRow& row, Arguments arguments, Action action) {
  if (arguments.empty()) throw BadIndexException(row.name);
  requireArguments(row, arguments, 1);
  try {
    return action(arguments[0]);
  } catch (const TypeException& e) {
    if (!e.attribute().empty()) throw;
    throw BadIndexException(row.name);
  }
}

/// The form with this number of arguments; else the longest, which then says what is wrong with them.
const Form& formFor(const AttributeRow& row, std::size_t arguments) {
  if (row.forms.empty()) throw OperationNotSupportedException(row.name);
  const auto fits = [=](const Form& form) { return form.arguments.size() == arguments; };
  const auto form = std::find_if(row.forms.begin(), row.forms.end(), fits);
  if (form != row.forms.end()) return *form;
  return *std::max_element(row.forms.begin(), row.forms.end(), [](const Form& a, const Form& b) {
    return a.arguments.size() < b.arguments.size();
  });
}

}  // namespace

std::string_view Value::typeName() const {
  if (!isObject()) return isNothing() ? "nothing" : typeName_;
  const ObjectRef ref = object();
  return ref ? ref.get()->fwkType()->name() : "null";
}

std::string Value::text() const {
  if (!isObject()) return isNothing() ? "" : text_(value_);
  const ObjectRef ref = object();
  const auto* entity = dynamic_cast<const Entity*>(ref.get());
  return !ref ? "null" : entity ? entity->fullName() : std::string(typeName());
}

GenericIf::GenericIf(ObjectRef object)
    : object_(std::move(object)),
      type_(object_ ? Introspection::instance().typeOf(*object_.get()) : nullptr) {}

AttributeId GenericIf::attributeId(std::string_view name) const {
  if (const ZanAttr* attribute = type_ ? type_->attribute(name) : nullptr) return attribute->id();
  throw UnknownAttributeException(type_ ? type_->table->name : "null", name);
}

/// Own table first, then those of the base types.
const AttributeRow* GenericIf::find(AttributeId attribute) const {
  for (const TypeEntry* entry = type_; entry; entry = entry->base) {
    if (const AttributeRow* row = entry->row(attribute)) return row;
  }
  return nullptr;
}

const AttributeRow& GenericIf::row(AttributeId attribute) const {
  if (const AttributeRow* found = find(attribute)) return *found;
  throw UnknownAttributeException(type_ ? type_->table->name : "null", numbered(attribute));
}

Value GenericIf::attributeOp(Operation operation, Arguments arguments) const {
  if (object_.isConst() && isMutating(operation.op)) {
    const AttributeRow* known = find(operation.attribute);
    throw ConstInstanceException(known ? std::string(known->name) : numbered(operation.attribute));
  }
  const AttributeRow& r = row(operation.attribute);
  return about(r.name, [&] { return dispatch(r, operation.op, arguments); });
}

Value GenericIf::dispatch(const AttributeRow& r, AttributeOp op, Arguments arguments) const {
  switch (op) {
    case AttributeOp::read:
      if (!arguments.empty() || (r.at && !r.get)) throw BadIndexException(r.name);
      return asConstAs(object_, required(r, r.get)(*object_.get()));
    case AttributeOp::readAt:
      if (!r.at) throw BadIndexException(r.name);
      return withIndex(r, arguments,
                       [&](const Value& key) { return asConstAs(object_, r.at(*object_.get(), key)); });
    case AttributeOp::count:
      required(r, r.count);
      requireArguments(r, arguments, 0);
      return Value::of(r.count(*object_.get()));
    case AttributeOp::iterate:
      required(r, r.iterate);
      requireArguments(r, arguments, 0);
      return Value::of(IteratorPtr(r.iterate(object_, r)));
    case AttributeOp::set:
      if (r.hasMutatorForms()) return invoke(r, arguments);
      required(r, r.set);
      requireArguments(r, arguments, 1, "value");
      r.set(mutableObject(), arguments[0], r.type);
      return {};
    case AttributeOp::erase:
      required(r, r.erase);
      return withIndex(r, arguments, [&](const Value& key) {
        r.erase(mutableObject(), key);
        return Value();
      });
    case AttributeOp::eraseAll:
      required(r, r.eraseAll);
      requireArguments(r, arguments, 0);
      r.eraseAll(mutableObject());
      return {};
    case AttributeOp::invoke:
      return invoke(r, arguments);
  }
  throw OperationNotSupportedException(r.name);
}

Value GenericIf::invoke(const AttributeRow& row, Arguments arguments) const {
  const Form& form = formFor(row, arguments.size());
  requireArguments(row, arguments, form.arguments.size(),
                   arguments.size() < form.arguments.size() ? form.arguments[arguments.size()].name : "");
  return form.call(mutableObject(), arguments, form.arguments);
}

std::unique_ptr<AttributeIterator> GenericIf::iterator(AttributeId attribute) const {
  const AttributeRow& r = row(attribute);
  return required(r, r.iterate)(object_, r);
}

Value GenericIf::read(std::string_view name) const {
  return attributeOp({attributeId(name), AttributeOp::read});
}

Value GenericIf::read(std::string_view name, const Value& key) const {
  return attributeOp({attributeId(name), AttributeOp::readAt}, Arguments(&key, 1));
}

void GenericIf::set(std::string_view name, const Value& value) const {
  attributeOp({attributeId(name), AttributeOp::set}, Arguments(&value, 1));
}

Value GenericIf::call(std::string_view name, const std::vector<NamedArgument>& arguments) const {
  const AttributeRow& r = row(attributeId(name));
  if (object_.isConst()) throw ConstInstanceException(r.name);
  const Form& form = formFor(r, arguments.size());
  return about(r.name, [&] {
    return form.call(mutableObject(), inOrder(r.name, form.arguments, arguments), form.arguments);
  });
}

Value callFactory(std::string_view name, const std::vector<NamedArgument>& arguments) {
  const FactoryRow* factory = Introspection::instance().factory(name);
  if (!factory) throw UnknownAttributeException("the factories", name);
  return about(
      name, [&] { return factory->call(inOrder(name, factory->arguments, arguments), factory->arguments); });
}

}  // namespace Zan
