## PACKAGE = zvaddon_demo ()
## PACKAGE = zvaddon_demo (FOLDER, PACKAGE)
##
## Builds an add-on package from Octave, the way a packaging tool does: it reads the
## add-on's manifest FOLDER/zvaddon.json (the file `zvaddon init` writes and
## `zvaddon build` reads), makes the package with zvAddonCreate, adds the files and
## every record the manifest gives, the screenshot and the instruction sets, signs the
## requirements, then reads the package back and unpacks it into a temporary folder.
##
## Inputs (both optional):
##   FOLDER   the add-on's folder; by default the example add-on that comes with this
##            package, a small signal-processing toolkit
##   PACKAGE  the package file to write; by default a new temporary file
##
## Outputs:
##   PACKAGE  the path of the package written
##
## The manifest's "files.include" entries are taken as plain files and folders (a
## folder with everything below it); patterns and "exclude" are left to `zvaddon build`.
##
## Example:
##   pkg load zvaddon
##   p = zvaddon_demo ();
##   zvAddonGetFileList (p)
##
## See also: zvAddonCreate, zvAddonAddFiles, zvAddonSign.

function package = zvaddon_demo (folder, package)
  if (nargin < 1 || isempty (folder))
    folder = fullfile (fileparts (mfilename ("fullpath")), "private", "example");
  endif
  if (nargin < 2 || isempty (package))
    package = [tempname() ".zvaddon"];
  endif
  manifest = jsondecode (fileread (fullfile (folder, "zvaddon.json")), "makeValidName", false);

  ## The manifest leaves out what it need not say; the functions take every field.
  properties = struct ("type", "ZORVAN Toolbox", "ZORVANRelease", "", "summary", "", "description", "", ...
                       "authorName", "", "authorContact", "", "authorOrganization", "");
  for [value, key] = manifest.properties
    properties.(key) = value;
  endfor
  zvAddonCreate (package, properties);
  files = content_files (folder, manifest.files.include);
  zvAddonAddFiles (package, fullfile (folder, files), files);

  if (isfield (manifest, "license") && isfield (manifest.license, "file"))
    manifest.license = struct ("type", manifest.license.type, ...
                               "text", fileread (fullfile (folder, manifest.license.file)));
  endif
  ## Each record, its gateway function, and the fields of its entries, which the manifest may leave
  ## out but the function takes all of; "a.b" names the entries of field b of record a.
  records = {"systemRequirements", @zvAddonSetSystemRequirements, {}
             "systemRequirements.productDependency", [], {"name", "version", "identifier"}
             "systemRequirements.supportPackageDependency", [], {"name", "version", "identifier"}
             "systemRequirements.addonDependency", [], {"name", "identifier", "earliestVersion", ...
                 "latestVersion", "downloadURL", "checksum", "checksumVersion"}
             "systemRequirements.platformCompatibility", [], {}
             "configuration", @zvAddonSetConfiguration, {"zorvanPaths", "javaClassPaths", "infoXMLPath", ...
                 "gettingStartedDocPath", "installMapPath"}
             "license", @zvAddonSetLicense, {"type", "text"}
             "examples", @zvAddonSetExamples, {"name", "examples"}
             "examples.examples", [], {"name", "type", "source", "main", "thumbnail", "images"}
             "revisionHistory", @zvAddonSetRevisionHistory, {"date", "version", "description"}
             "apps", @zvAddonSetAppInstallList, {"name", "guid", "relativePath", "installByDefault"}};
  for k = 1:rows (records)
    [key, field] = strtok (records{k, 1}, ".");
    if (isempty (field) && isfield (manifest, key))
      manifest.(key) = complete (manifest.(key), records{k, 3});
    elseif (isfield (manifest, key) && isfield (manifest.(key), field(2:end)))
      for e = 1:numel (manifest.(key))
        manifest.(key)(e).(field(2:end)) = complete (manifest.(key)(e).(field(2:end)), records{k, 3});
      endfor
    endif
  endfor
  for k = find (! cellfun ("isempty", records(:, 2)))'
    if (isfield (manifest, records{k, 1}))
      records{k, 2} (package, manifest.(records{k, 1}));
    endif
  endfor
  if (isfield (manifest, "screenshot"))
    zvAddonSetScreenshot (package, fullfile (folder, manifest.screenshot));
  endif
  if (isfield (manifest, "instructionSets"))
    for file = reshape (cellstr (manifest.instructionSets), 1, [])
      zvAddonAddInstructionSet (package, fullfile (folder, file{1}));
    endfor
  endif
  zvAddonSign (package);

  ## Read back, as an installer would.
  p = zvAddonGetProperties (package);
  listed = zvAddonGetFileList (package);
  printf ("%s %s by %s: %s\n", p.name, p.version, p.authorName, package);
  printf ("  %d files, SHA-512 %s\n", numel (listed), zvAddonComputeHash (package));
  for c = zvAddonGetExamples (package)'
    printf ("  examples in %s: %s\n", c.name, strjoin ({c.examples.name}, "; "));
  endfor
  unpacked = tempname ();
  zvAddonExtractAllFiles (package, unpacked);
  printf ("  unpacked into %s\n", unpacked);
endfunction

## A list of objects as one structure array with at least the given fields ("" where an object has
## none): jsondecode gives a structure array, or a cell array when the objects' keys differ. Flags
## become the texts "true" and "false".
function out = complete (value, fields)
  if (isstruct (value))
    value = num2cell (value);
  endif
  out = repmat (cell2struct (repmat ({""}, numel (fields), 1), fields(:), 1), 1, numel (value));
  for k = 1:numel (value)
    for [v, key] = value{k}
      if (islogical (v))
        v = {"false", "true"}{v + 1};
      endif
      out(k).(key) = v;
    endfor
  endfor
endfunction

## Relative paths of the files that the entries name, a folder standing for everything below it.
function files = content_files (folder, entries)
  files = {};
  for entry = reshape (cellstr (entries), 1, [])
    path = regexprep (entry{1}, "/$", "");
    if (isfolder (fullfile (folder, path)))
      below = dir (fullfile (folder, path));
      below = below(! ismember ({below.name}, {".", ".."}));
      files = [files, content_files(folder, strcat (path, "/", {below.name}))];
    else
      files{end + 1} = path;
    endif
  endfor
endfunction
