// Reads the bytes as a program of calls on a Property tree (SetChild,
// SetChildT, CreateChildT, Add, AddWithName, RemoveChild by name and by
// index, ChildByPath, ChildExistsByPath, copy assignment, CopyDataFrom,
// comparison, and a save and load) and runs it on the library and on a small
// model of the documented rules kept here. After every call both must agree:
// the same exception, or the same answer, and the same tree, child for child
// and in the same order.
#include "FuzzCheck.h"

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Tarsel;
using namespace Tarsel::Core;

// How a call ended.
enum class Result {
    Done,
    True,
    False,
    MethodIsNotApplicable,
    ChildNameIsNotFound,
    IndexIsOutOfBound,
    DifferentTypes,
    NameIsEmpty,
};

// --- The model ----------------------------------------------------------------

// A node of the model: Array, Bool or Int64 (the types the program makes),
// and children, which a non-container holds only through AddWithName.
struct Node {
    std::string name;
    PropertyTypes type = TypeArray;
    long long value = 0;
    std::vector<Node> children;
};

std::size_t Size(const Node& node) {
    std::size_t size = 1;
    for (const Node& child : node.children) {
        size += Size(child);
    }
    return size;
}

// What every copy takes: name, type, value, and children only of a container.
Node CopyOf(const Node& node) {
    Node copy{node.name, node.type, node.value, {}};
    if (node.type == TypeArray) {
        for (const Node& child : node.children) {
            copy.children.push_back(CopyOf(child));
        }
    }
    return copy;
}

Node* FindFirst(Node& node, const std::string& name) {
    for (Node& child : node.children) {
        if (child.name == name) {
            return &child;
        }
    }
    return nullptr;
}

std::vector<std::string> Segments(const std::string& path) {
    std::vector<std::string> segments;
    std::string current;
    for (const char c : path + "/") {
        if (c != '/') {
            current += c;
        } else if (!current.empty()) {
            segments.push_back(current);
            current.clear();
        }
    }
    return segments;
}

// The node a path names, or the failure of the first step that fails:
// a missing name (ChildNameIsNotFound) or a step through a non-container.
Result ModelByPath(Node& root, const std::string& path, Node** found) {
    Node* node = &root;
    for (const std::string& segment : Segments(path)) {
        if (node->type != TypeArray) {
            return Result::MethodIsNotApplicable;
        }
        node = FindFirst(*node, segment);
        if (node == nullptr) {
            return Result::ChildNameIsNotFound;
        }
    }
    *found = node;
    return Result::Done;
}

// ChildExistsByPath: a missing name answers false, a non-container throws.
Result ModelExistsByPath(Node& root, const std::string& path) {
    Node* found = nullptr;
    switch (ModelByPath(root, path, &found)) {
    case Result::Done:
        return Result::True;
    case Result::ChildNameIsNotFound:
        return Result::False;
    default:
        return Result::MethodIsNotApplicable;
    }
}

// Equality as documented: top-level types must match; containers match in
// child count and name, then children pair up after std::sort by name, a
// child pair of different types being unequal.
Result ModelEquals(const Node& a, const Node& b) {
    if (a.type != b.type) {
        return Result::DifferentTypes;
    }
    if (a.type != TypeArray) {
        return a.value == b.value ? Result::True : Result::False;
    }
    if (a.children.size() != b.children.size() || a.name != b.name) {
        return Result::False;
    }
    const auto sorted = [](const Node& node) {
        std::vector<const Node*> children;
        for (const Node& child : node.children) {
            children.push_back(&child);
        }
        std::sort(children.begin(), children.end(), [](const Node* x, const Node* y) { return x->name < y->name; });
        return children;
    };
    const std::vector<const Node*> mine = sorted(a);
    const std::vector<const Node*> theirs = sorted(b);
    for (std::size_t i = 0; i < mine.size(); ++i) {
        if (ModelEquals(*mine[i], *theirs[i]) != Result::True) {
            return Result::False;
        }
    }
    return Result::True;
}

// What loading the saved value of node gives, into a fresh node of its name.
Result ModelLoadValue(const Node& node, Node* loaded);

// A container's children as saved and loaded: members keyed by child name,
// in order; children of one name all write into the first member of that
// name (the last one wins) and leave the later ones null, which load as an
// empty container over the first. An empty name is refused by the load.
Result ModelLoadChildren(const Node& saved, Node* target) {
    std::vector<std::string> seen;
    for (const Node& child : saved.children) {
        if (child.name.empty()) {
            return Result::NameIsEmpty;
        }
        Node* existing = FindFirst(*target, child.name);
        if (existing == nullptr) {
            target->children.push_back(Node{child.name, TypeArray, 0, {}});
            existing = &target->children.back();
        } else {
            *existing = Node{child.name, TypeArray, 0, {}};
        }
        if (std::find(seen.begin(), seen.end(), child.name) != seen.end()) {
            continue;  // a null member
        }
        seen.push_back(child.name);
        const Node* last = nullptr;
        for (const Node& same : saved.children) {
            if (same.name == child.name) {
                last = &same;
            }
        }
        Node value;
        const Result result = ModelLoadValue(*last, &value);
        if (value.type != TypeArray) {
            existing->type = value.type;
            existing->value = value.value;
        } else {
            existing->children = std::move(value.children);
        }
        if (result != Result::Done) {
            return result;
        }
    }
    return Result::Done;
}

// What saving node wrapped in {name: ...} and loading it back wrapped gives.
Result ModelSaveLoad(const Node& node, Node* loaded) {
    if (node.name.empty()) {
        return Result::NameIsEmpty;  // the wrapping member's key
    }
    return ModelLoadValue(node, loaded);
}

Result ModelLoadValue(const Node& node, Node* loaded) {
    *loaded = Node{node.name, node.type, node.value, {}};
    if (node.type != TypeArray) {
        return Result::Done;
    }
    return ModelLoadChildren(node, loaded);
}

// --- The library side ---------------------------------------------------------

template <class Call>
Result Attempt(Call call) {
    try {
        return call();
    } catch (const MethodIsNotApplicable&) {
        return Result::MethodIsNotApplicable;
    } catch (const ChildNameIsNotFound&) {
        return Result::ChildNameIsNotFound;
    } catch (const IndexIsOutOfBound&) {
        return Result::IndexIsOutOfBound;
    } catch (const ComparedPropertiesHaveDifferentTypes&) {
        return Result::DifferentTypes;
    } catch (const std::invalid_argument& e) {
        TARSEL_FUZZ_CHECK(std::string(e.what()).rfind("name is empty", 0) == 0);
        return Result::NameIsEmpty;
    }
}

// The whole tree. A container's children are walked in order; a
// non-container's, which only GetItemIterator reaches, are compared as far
// as the model has them, and with thorough set the library must have no
// more (each such check costs a thrown IndexIsOutOfBound and its call stack,
// so it runs once a program).
bool Same(const Property& p, const Node& n, bool thorough) {
    if (p.GetName() != n.name || p.GetType() != n.type) {
        return false;
    }
    if ((n.type == TypeInt64 && p.GetInt64() != n.value) || (n.type == TypeBool && p.GetBool() != (n.value != 0))) {
        return false;
    }
    if (n.type == TypeArray) {
        if (p.Count() != n.children.size()) {
            return false;
        }
        std::size_t i = 0;
        for (const Property& child : p) {
            if (!Same(child, n.children[i++], thorough)) {
                return false;
            }
        }
        return true;
    }
    for (std::size_t i = 0; i < n.children.size(); ++i) {
        if (!Same(*p.GetItemIterator(i), n.children[i], thorough)) {
            return false;
        }
    }
    return !thorough || Attempt([&] {
                            p.GetItemIterator(n.children.size());
                            return Result::Done;
                        }) == Result::IndexIsOutOfBound;
}

// --- The program ----------------------------------------------------------------

class Program {
public:
    Program(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool AtEnd() const { return m_position >= m_size; }

    std::uint8_t Byte() { return m_position < m_size ? m_data[m_position++] : 0; }

    // A child name from a few, the empty one among them.
    std::string Name() {
        static const char* const kNames[] = {"a", "b", "", "0", "1", "c", "a", "b"};
        return kNames[Byte() % 8];
    }

    // A path of up to three names, with stray separators.
    std::string Path() {
        const std::uint8_t shape = Byte();
        std::string path = (shape & 4) != 0 ? "/" : "";
        const int segments = shape % 4;
        for (int i = 0; i < segments; ++i) {
            path += Name();
            path += (shape & (8 << i)) != 0 ? "//" : "/";
        }
        return path;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_position = 0;
};

// The tree is kept small: a call that copies would otherwise double it.
constexpr std::size_t kMaxNodes = 400;

struct Trees {
    Property root{"root"};
    Node model{"root", TypeArray, 0, {}};
};

// Resolves a path on both sides; false when the lookups fail (alike).
bool Resolve(Trees& trees, const std::string& path, Property** p, Node** n) {
    const Result expected = ModelByPath(trees.model, path, n);
    const Result actual = Attempt([&] {
        *p = &trees.root.ChildByPath(path);
        return Result::Done;
    });
    TARSEL_FUZZ_CHECK(actual == expected);
    if (actual == Result::Done) {
        TARSEL_FUZZ_CHECK(Same(**p, **n, false));
    }
    return actual == Result::Done;
}

// The node a copying call takes from: none when its path fails, or when a
// copy of it would take the tree past kMaxNodes.
struct Source {
    Property* property;
    Node* node;
};

std::optional<Source> ResolveSource(Program& program, Trees& trees) {
    Source source{nullptr, nullptr};
    if (!Resolve(trees, program.Path(), &source.property, &source.node) ||
        Size(trees.model) + Size(*source.node) > kMaxNodes) {
        return std::nullopt;
    }
    return source;
}

void Step(Program& program, Trees& trees) {
    const std::uint8_t operation = program.Byte() % 13;
    Property* p = nullptr;
    Node* n = nullptr;
    if (!Resolve(trees, program.Path(), &p, &n)) {
        return;
    }
    Result expected = Result::Done;
    Result actual = Result::Done;
    switch (operation) {
    case 0: {  // SetChild(name): name check, then array check
        const std::string name = program.Name();
        expected = name.empty()           ? Result::NameIsEmpty
                   : n->type != TypeArray ? Result::MethodIsNotApplicable
                                          : Result::Done;
        if (expected == Result::Done) {
            Node* child = FindFirst(*n, name);
            if (child != nullptr) {
                child->type = TypeArray;
                child->children.clear();
            } else {
                n->children.push_back(Node{name, TypeArray, 0, {}});
            }
        }
        actual = Attempt([&] {
            p->SetChild(name);
            return Result::Done;
        });
        break;
    }
    case 1:    // SetChildT<long long>: no name check
    case 2: {  // CreateChildT<bool>: always appends
        const std::string name = program.Name();
        const long long value = program.Byte();
        expected = n->type != TypeArray ? Result::MethodIsNotApplicable : Result::Done;
        if (expected == Result::Done) {
            Node* child = operation == 1 ? FindFirst(*n, name) : nullptr;
            if (child != nullptr) {
                *child = Node{child->name, TypeInt64, value, {}};
            } else if (operation == 1) {
                n->children.push_back(Node{name, TypeInt64, value, {}});
            } else {
                n->children.push_back(Node{name, TypeBool, value % 2, {}});
            }
        }
        actual = Attempt([&] {
            if (operation == 1) {
                p->SetChildT<long long>(name, value);
            } else {
                p->CreateChildT<bool>(name, value % 2 != 0);
            }
            return Result::Done;
        });
        break;
    }
    case 3:    // Add(source): named by the count
    case 4:    // AddWithName(name, source): any node type
    case 5: {  // SetChild(name, source)
        const std::string name = program.Name();
        const std::optional<Source> source = ResolveSource(program, trees);
        if (!source) {
            return;
        }
        Property* const sp = source->property;
        Node copy = CopyOf(*source->node);
        if (operation == 3) {
            expected = n->type != TypeArray ? Result::MethodIsNotApplicable : Result::Done;
            copy.name = std::to_string(n->children.size());
            if (expected == Result::Done) {
                n->children.push_back(std::move(copy));
            }
            actual = Attempt([&] {
                p->Add(*sp);
                return Result::Done;
            });
        } else if (operation == 4) {
            expected = name.empty() ? Result::NameIsEmpty : Result::Done;
            copy.name = name;
            if (expected == Result::Done) {
                n->children.push_back(std::move(copy));
            }
            actual = Attempt([&] {
                p->AddWithName(name, *sp);
                return Result::Done;
            });
        } else {
            expected = name.empty()           ? Result::NameIsEmpty
                       : n->type != TypeArray ? Result::MethodIsNotApplicable
                                              : Result::Done;
            if (expected == Result::Done) {
                Node* child = FindFirst(*n, name);
                copy.name = name;
                if (child != nullptr) {
                    *child = std::move(copy);  // CopyDataFrom: the name stays, and it is the same
                } else {
                    n->children.push_back(std::move(copy));
                }
            }
            actual = Attempt([&] {
                p->SetChild(name, *sp);
                return Result::Done;
            });
        }
        break;
    }
    case 6: {  // RemoveChild(name)
        const std::string name = program.Name();
        expected = n->type != TypeArray ? Result::MethodIsNotApplicable : Result::Done;
        if (expected == Result::Done) {
            const auto found = std::find_if(n->children.begin(), n->children.end(),
                                            [&](const Node& child) { return child.name == name; });
            if (found == n->children.end()) {
                expected = Result::ChildNameIsNotFound;
            } else {
                n->children.erase(found);
            }
        }
        actual = Attempt([&] {
            p->RemoveChild(name);
            return Result::Done;
        });
        break;
    }
    case 7: {  // RemoveChild(index)
        const std::size_t index = program.Byte() % 6;
        expected = n->type != TypeArray          ? Result::MethodIsNotApplicable
                   : index >= n->children.size() ? Result::IndexIsOutOfBound
                                                 : Result::Done;
        if (expected == Result::Done) {
            n->children.erase(n->children.begin() + static_cast<std::ptrdiff_t>(index));
        }
        actual = Attempt([&] {
            p->RemoveChild(index);
            return Result::Done;
        });
        break;
    }
    case 8: {  // ChildExistsByPath from the selected node
        const std::string path = program.Path();
        expected = ModelExistsByPath(*n, path);
        actual = Attempt([&] { return p->ChildExistsByPath(path) ? Result::True : Result::False; });
        break;
    }
    case 9:     // operator= from another node, which may hold this one or lie inside it
    case 10: {  // CopyDataFrom: the name stays
        const std::optional<Source> source = ResolveSource(program, trees);
        if (!source) {
            return;
        }
        Property* const sp = source->property;
        Node copy = CopyOf(*source->node);
        if (operation == 10) {
            copy.name = n->name;
        }
        *n = std::move(copy);
        if (operation == 9) {
            *p = *sp;
        } else {
            p->CopyDataFrom(*sp);
        }
        break;
    }
    case 11: {  // operator== and operator!= with another node
        Property* sp = nullptr;
        Node* sn = nullptr;
        if (!Resolve(trees, program.Path(), &sp, &sn)) {
            return;
        }
        expected = ModelEquals(*n, *sn);
        actual = Attempt([&] { return *p == *sp ? Result::True : Result::False; });
        TARSEL_FUZZ_CHECK(Attempt([&] { return *p != *sp ? Result::False : Result::True; }) == expected);
        break;
    }
    default: {  // saved wrapped and loaded back wrapped into a fresh node
        Node loaded;
        expected = ModelSaveLoad(*n, &loaded);
        Property back{std::string()};
        const auto text = MemoryDataOutput::Create();
        PropertySerializer::Serialize(*p, text, true);
        actual = Attempt([&] {
            PropertySerializer::Deserialize(back, MemoryDataInput::Create(text->GetData()), true);
            return Result::Done;
        });
        if (expected == Result::Done && actual == Result::Done) {
            TARSEL_FUZZ_CHECK(Same(back, loaded, false));
        }
        break;
    }
    }
    TARSEL_FUZZ_CHECK(actual == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Program program(data, size);
    Trees trees;
    while (!program.AtEnd()) {
        Step(program, trees);
        TARSEL_FUZZ_CHECK(Same(trees.root, trees.model, false));
    }
    TARSEL_FUZZ_CHECK(Same(trees.root, trees.model, true));
    return 0;
}
