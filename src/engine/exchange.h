// Template and package files: a datapage, or a package with the datapages its tasks use, as one
// XML file that people keep in version control, edit by hand and move between machines.
//
// The file is object XML (see infra/xml_serializer.h): the root <GleanwrightExport
// Object="True"> holds a FormatVersion, a <DataPages Object="True"> collection of <DataPage>s
// (each with its <Entities>, each of those with its <Attributes> and <SelectedMetaFields>) and a
// <Jobs Object="True"> collection of <Job>s (each with its <Tasks>, each of those with its
// <DocSources>). Collection members carry Index="1", "2", ... Values hold what the rules store
// holds, column for column, written with the reversible escape, so every value comes back
// exactly; a task's text form is its `description` column as stored. Connection strings are
// enciphered as the rules store keeps them (CCrypto), so a file written under a machine's own key
// file reads only where that key is. The README shows a file written by hand.
//
// Export reads the rules store through the data-access classes and orders what it writes, so the
// same store always gives the same file: datasets parent before child (siblings by OnPageOrder,
// name, id), fields by step and id, tasks by step, sources and custom columns as stored. A
// connection string stored in clear (from before strings were enciphered) is enciphered on the
// way out, with a fresh nonce each time: such a store gives the same file only once the file has
// been imported back, or the template saved again.
//
// Import stores what a file holds, in one transaction on the rules store (`RulesTransaction`): a
// file that is not well-formed, is not such an export, or holds something the store cannot take
// is refused with a message "<file>:<line>: ..." and nothing is written. Ids are kept, so
// importing a file again updates what the first import stored. What a file leaves out is
// resolved as a person writing it by hand would expect:
//  - an object without an id takes the id of the stored object of the same name (a datapage by
//    DisplayName, a package by JobName, a dataset by EntityName within its datapage, a field by
//    ColumnName within its dataset, a task by TaskName within its package), or a new one; a name
//    that several stored objects share is refused;
//  - a task's DataPageId and a dataset's ParentEntityID may name their target by id or by name
//    (a datapage by display name; a parent by EntityName within the same datapage); a datapage
//    may be in the file or in the store, a parent in the file's datapage or (by id) in the store;
//  - a custom column is named by Id or ColumnName; a dataset without a SelectedMetaFields element
//    gets the columns selected by default, one with an empty element none;
//  - a date without an element is now for a new object and stays as stored for an existing one
//    (an empty element is no date, as an export writes one); a connection string given in clear
//    is enciphered.
// An imported datapage or package ends up exactly as the file says: the datasets, fields and
// tasks it stores but the file lacks are deleted, and a task's document sources are replaced. A
// package with a run under way is refused.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engine/failures.h"
#include "platform/error.h"

namespace gw::exchange {

struct ExportResult {
  std::string xml;
  // Things the file will not carry well, such as a task whose datapage the store lacks.
  std::vector<std::string> warnings;
};

// The datapage whose id, or else whose display name (without regard to case), is `IdOrName`.
ExportResult ExportDataPage(std::string_view IdOrName);
// The package whose id, or else whose name, is `IdOrName`, with the datapages its tasks use.
ExportResult ExportPackage(std::string_view IdOrName);

struct ImportedObject {
  std::string kind;  // "datapage" or "package"
  std::string id;
  std::string name;
  bool created = false;  // false: an existing one was updated
};

// Stores the contents of the file `file_name`, whose text is `xml` (see the file comment).
std::vector<ImportedObject> Import(std::string_view xml, std::string_view file_name);

}  // namespace gw::exchange
