#pragma once

class CRegistryNode;

// Makes in `tree` the changes that lead from `before` to `after`, except where `tree` itself has
// changed since it equalled `before`. Keys are added, but never removed without a value or key that
// takes their place. Throws std::bad_alloc; the merge may then be repeated.
void MergeRegistryNodes(CRegistryNode& before, CRegistryNode& after, CRegistryNode& tree);
