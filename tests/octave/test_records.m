function cases = test_records()
  % Every metadata record set from Octave values and read back: structures, structure arrays of any
  % shape, cell arrays of either orientation, empty fields, non-ASCII and astral text, objects.
  cases = struct('name', {'properties', 'system_requirements', 'configuration', 'license', 'examples', ...
                          'revision_history', 'app_install_list', 'objects_as_records'}, ...
                 'run', {@properties, @system_requirements, @configuration, @license, @examples, ...
                         @revision_history, @app_install_list, @objects_as_records});
end

function properties(work)
  package = new_package(work);
  order = {'type'; 'name'; 'version'; 'ZORVANRelease'; 'summary'; 'authorName'; 'authorContact'; ...
           'authorOrganization'; 'GUID'; 'description'};
  given = base_properties();
  got = zvAddonGetProperties(package);
  check_equal(fieldnames(got), order, 'field order');
  check_equal(got.ZORVANRelease, ['Octave ' OCTAVE_VERSION], 'the running host''s release is written');
  for name = setdiff(order, {'ZORVANRelease'})'
    check_equal(got.(name{1}), given.(name{1}), name{1});
  end
  changed = given;
  changed.name = 'Ренамед ✓';
  changed.description = '';
  zvAddonSetProperties(package, changed);
  got = zvAddonGetProperties(package);
  check_equal({got.name, got.description}, {changed.name, ''}, 'after a set');
end

function system_requirements(work)
  package = new_package(work);
  products = struct('name', {'Core', 'Signal ✓', 'Ünïcode'}, 'version', {'1.0', '', '3'}, ...
                    'identifier', {'CORE', 'SIG', 'UNI'});
  addons = struct('name', {'Helper', 'Helper'}, 'identifier', {'h-1', 'h-1'}, 'earliestVersion', {'1', '2'}, ...
                  'latestVersion', {'9', ''}, 'downloadURL', {'https://example.org/h?a=1&b=2', ''}, ...
                  'checksum', {'abc', ''}, 'checksumVersion', {'sha256', ''});
  given = struct('productDependency', reshape(products, 3, 1), ...
                 'supportPackageDependency', products(2), ...
                 'platformCompatibility', struct('win', 'true', 'linux', 'true', 'mac', 'false', 'ZORVANOnline', 'maybe'), ...
                 'releaseCompatibility', struct('start', 'R2020a', 'end', 'R2026b'), ...
                 'addonDependency', addons);
  zvAddonSetSystemRequirements(package, given);
  got = zvAddonGetSystemRequirements(package);
  check_equal(fieldnames(got), {'productDependency'; 'supportPackageDependency'; 'platformCompatibility'; ...
                                'releaseCompatibility'; 'addonDependency'}, 'field order');
  check_equal(got.productDependency(:), products(:), 'products, in order, duplicates kept');
  check_equal(got.supportPackageDependency(:), products(2), 'support packages');
  check_equal(got.addonDependency(:), addons(:), 'add-ons');
  check_equal(got.platformCompatibility, given.platformCompatibility, 'platform flags kept as text');
  check_equal(got.releaseCompatibility, given.releaseCompatibility, 'release range');
end

function configuration(work)
  package = new_package(work);
  given = struct('zorvanPaths', {{'code', 'code/ünï 𝄞'}}, 'javaClassPaths', {{'lib/a.jar'; 'lib/b.jar'; 'c.jar'}}, ...
                 'infoXMLPath', 'info.xml', 'gettingStartedDocPath', 'doc/start.html', 'installMapPath', '');
  zvAddonSetConfiguration(package, given);
  got = zvAddonGetConfiguration(package);
  check_equal(fieldnames(got), fieldnames(given), 'field order');
  check_equal(got.zorvanPaths, given.zorvanPaths, 'search paths');
  check_equal(got.javaClassPaths, given.javaClassPaths', 'class paths come back as one row');
  check_equal(got.infoXMLPath, 'info.xml');
  check_equal(got.gettingStartedDocPath, 'doc/start.html');
  check_equal(got.installMapPath, [], 'an empty path is left empty');
end

function license(work)
  package = new_package(work);
  check_equal(zvAddonGetLicense(package), struct('type', '', 'text', ''), 'no licence yet');
  given = struct('type', 'BSD-3 ✓', 'text', sprintf('Copyright © 2026\n\n\tRedistribution <allowed> & "quoted" 𝄞\n'));
  zvAddonSetLicense(package, given);
  check_equal(zvAddonGetLicense(package), given);
end

function examples(work)
  package = new_package(work);
  ex = struct('name', {'Intro', 'Ädvanced'}, 'type', {'script', 'live'}, 'source', {'ex/intro.m', ''}, ...
              'main', {'ex/intro.m', 'ex/adv.mlx'}, 'thumbnail', {'', 'ex/adv.png'}, ...
              'images', {{'i1.png'; 'i2.png'; 'i 3 ✓.png'}, {}});
  given = struct('name', {'Basics', 'Basics', 'Empty'}, 'examples', {ex, ex(2), []});
  zvAddonSetExamples(package, given);
  got = zvAddonGetExamples(package);
  check_equal(numel(got), 3, 'categories with the same name stay apart');
  check_equal({got.name}, {given.name});
  check_equal(fieldnames(got(1).examples), {'name'; 'type'; 'source'; 'main'; 'thumbnail'; 'images'});
  check_equal(numel(got(1).examples), 2);
  first = got(1).examples(1);
  check_equal(first.images, {'i1.png', 'i2.png', 'i 3 ✓.png'}, 'images come back as one row, in order');
  for name = {'name', 'type', 'source', 'main', 'thumbnail'}
    check_equal(first.(name{1}), ex(1).(name{1}), name{1});
    check_equal(got(2).examples.(name{1}), ex(2).(name{1}), name{1});
  end
  assert(isempty(got(2).examples.images), 'no images leave the field empty');
  assert(isempty(got(3).examples), 'a category without examples');
end

function revision_history(work)
  package = new_package(work);
  given = struct('date', {'2026-01-01', 'not a date', '2024', ''}, 'version', {'3', '2', '1', '0'}, ...
                 'description', {'Third ✓', '', sprintf('multi\nline'), '𝄞'});
  % a 2-by-2 array is read in element order
  zvAddonSetRevisionHistory(package, reshape(given, 2, 2));
  got = zvAddonGetRevisionHistory(package);
  check_equal(fieldnames(got), {'date'; 'version'; 'description'});
  check_equal(got(:), given(:));
end

function app_install_list(work)
  package = new_package(work);
  given = struct('name', {'Viewer', 'Ëditor'}, 'guid', {'g-1', 'g-2'}, 'relativePath', {'apps/v.app', 'apps/e.app'}, ...
                 'installByDefault', {'true', 'false'});
  zvAddonSetAppInstallList(package, given);
  got = zvAddonGetAppInstallList(package);
  check_equal(fieldnames(got), {'name'; 'guid'; 'relativePath'; 'installByDefault'});
  check_equal(got(:), given(:));
  expect_error(@() zvAddonSetAppInstallList(package, struct('name', 'n', 'guid', 'g', 'relativePath', 'r', ...
                                                            'installByDefault', true)), 'zvhost:notString');
end

function objects_as_records(work)
  package = new_package(work);
  licences = {@LicenceObject, 'Apache ✓', 'text of a classdef object'
              @legacy_licence, 'GPL', 'text of an old-style object'};
  for k = 1:rows(licences)
    [make, type, text] = licences{k, :};
    zvAddonSetLicense(package, make(type, text));
    check_equal(zvAddonGetLicense(package), struct('type', type, 'text', text), func2str(make));
  end
  revisions(1) = RevisionObject('2026', '2.0', 'second');
  revisions(2) = RevisionObject('2025', '1.0', 'first');
  zvAddonSetRevisionHistory(package, revisions);
  got = zvAddonGetRevisionHistory(package);
  check_equal({got.version}, {'2.0', '1.0'}, 'an array of classdef objects is read element by element');
  before = read_bytes(package);
  expect_error(@() zvAddonSetLicense(package, FailingObject()), 'fixture:getter');
  expect_error(@() zvAddonSetLicense(package, containers.Map()), 'zvhost:notString');
  check_equal(read_bytes(package), before, 'failed sets left the package as it was');
end
