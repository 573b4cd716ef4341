// Queries about the components that files belong to.
#pragma once

#include <string>
#include <vector>

#include "storage/database.h"
#include "storage/repository_types.h"

namespace quarry {

class ComponentQueries {
 public:
  virtual ~ComponentQueries() = default;

  // The connection to the index, supplied by the repository.
  virtual Database& db() = 0;

  // The distinct dependencies between components: a code edge that is no guess (and has a
  // resolution) from a symbol in a file of component S to a symbol in a file of another
  // component T makes S depend on T. With `exclude_test_files`, both files must be
  // production files. Sorted by source, then target.
  virtual std::vector<ComponentDependency> get_component_dependencies(bool exclude_test_files);

 protected:
  // The distinct names, sorted, of the components of the files with these paths. Paths
  // that are no file, and files without a component, contribute nothing. Any number of
  // paths may be given.
  virtual std::vector<std::string> get_components_for_files(const std::vector<std::string>& paths);
};

}  // namespace quarry
