// What the server keeps of the scene-graph node bases that the terrain classes derive from: a display
// name, the counted reference of BtkObject, and a group's ordered children. Rendering state is left out.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "toolkit/BtkObject.h"

class GngNode : public BtkObject {
 public:
  explicit GngNode(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }
  void setName(const std::string& name) { name_ = name; }

 private:
  std::string name_;
};

class GngRenderNode : public GngNode {
 public:
  using GngNode::GngNode;
};

class GngGroup : public GngNode {
 public:
  using GngNode::GngNode;
  void addChild(GngNode* child) { children_.emplace_back(child); }
  size_t numChildren() const { return children_.size(); }
  GngNode* child(size_t i) const { return i < children_.size() ? children_[i].get() : nullptr; }

 protected:
  void removeAllChildren() { children_.clear(); }

 private:
  std::vector<BtkRef<GngNode>> children_;  // scene-graph order
};
