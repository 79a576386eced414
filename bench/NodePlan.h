// The real-node floor's plan: a loaded tree written down once, so that the
// same tree can be built again at the cost of its nodes and nothing else.
#pragma once

#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <array>
#include <string>

namespace TarselBench {

// The children of a loaded tree as steps in document order, one per node:
// the depth of its parent, its name, its type and value. Build replays them
// through the reader's own in-place append (SerializerAccess::Append), so it
// makes the same nodes, names, values and nesting as a load, in the order a
// load appends them, but looks up no name and reads no number.
//
// The steps are a byte stream about the size of the JSON text (counts take a
// byte when below 128, numbers their eight bytes), so that reading the plan
// costs about what reading the document does, not several times more.
class NodePlan {
public:
    // Throws std::logic_error when the plan does not build a tree equal to
    // tree, node for node and in order: a floor that builds something else
    // would be no floor. Throws std::length_error for a tree deeper than a
    // document may be (PropertySerializer::kMaxDepth).
    explicit NodePlan(const Tarsel::Core::Property& tree);

    // Appends the planned nodes to root, an empty container.
    void Build(Tarsel::Core::Property& root);

private:
    void Write(const Tarsel::Core::Property& tree);

    std::string m_steps;
    // While building, the container that receives the children of each
    // depth; held in place, so that building allocates nothing but the tree.
    std::array<Tarsel::Core::Property*, Tarsel::Core::PropertySerializer::kMaxDepth + 1> m_parents{};
};

}  // namespace TarselBench
