// Names of the host's object types, for interfaces that pass them along. The types
// themselves live in the host layer (src/host/host.hpp).
#pragma once

#include <memory>

namespace qz::host {

class Application;
class Workbooks;
class Workbook;
class Windows;
class Window;
class Sheets;
class Worksheets;
class Worksheet;
class Charts;
class Chart;
class ChartObjects;
class ChartObject;
class Range;
class Areas;
class Font;
class Interior;
class Borders;
class Border;
class AutoFilter;
class Characters;
class Names;
class Name;
class Hyperlinks;
class Hyperlink;
class WorksheetFunction;
class AddIns;
class AddIn;
class Dialog;
class CommandBars;
class CommandBar;
class CommandBarControls;
class CommandBarControl;
class DocumentProperties;
class DocumentProperty;

using ApplicationPtr = std::shared_ptr<Application>;
using WorkbooksPtr = std::shared_ptr<Workbooks>;
using WorkbookPtr = std::shared_ptr<Workbook>;
using WindowsPtr = std::shared_ptr<Windows>;
using WindowPtr = std::shared_ptr<Window>;
using SheetsPtr = std::shared_ptr<Sheets>;
using WorksheetsPtr = std::shared_ptr<Worksheets>;
using WorksheetPtr = std::shared_ptr<Worksheet>;
using ChartsPtr = std::shared_ptr<Charts>;
using ChartPtr = std::shared_ptr<Chart>;
using ChartObjectsPtr = std::shared_ptr<ChartObjects>;
using ChartObjectPtr = std::shared_ptr<ChartObject>;
using RangePtr = std::shared_ptr<Range>;
using AreasPtr = std::shared_ptr<Areas>;
using FontPtr = std::shared_ptr<Font>;
using InteriorPtr = std::shared_ptr<Interior>;
using BordersPtr = std::shared_ptr<Borders>;
using BorderPtr = std::shared_ptr<Border>;
using AutoFilterPtr = std::shared_ptr<AutoFilter>;
using CharactersPtr = std::shared_ptr<Characters>;
using NamesPtr = std::shared_ptr<Names>;
using NamePtr = std::shared_ptr<Name>;
using HyperlinksPtr = std::shared_ptr<Hyperlinks>;
using HyperlinkPtr = std::shared_ptr<Hyperlink>;
using WorksheetFunctionPtr = std::shared_ptr<WorksheetFunction>;
using AddInsPtr = std::shared_ptr<AddIns>;
using AddInPtr = std::shared_ptr<AddIn>;
using DialogPtr = std::shared_ptr<Dialog>;
using CommandBarsPtr = std::shared_ptr<CommandBars>;
using CommandBarPtr = std::shared_ptr<CommandBar>;
using CommandBarControlsPtr = std::shared_ptr<CommandBarControls>;
using CommandBarControlPtr = std::shared_ptr<CommandBarControl>;
using DocumentPropertiesPtr = std::shared_ptr<DocumentProperties>;
using DocumentPropertyPtr = std::shared_ptr<DocumentProperty>;

}  // namespace qz::host
