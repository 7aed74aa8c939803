// Opens a package with Apache POI's OPC layer (openxml4j) and prints what it sees, one record a line
// of tab-separated fields, each URL-encoded as UTF-8 so that no value breaks the format:
//   part NAME TYPE | rel SOURCE ID TYPE TARGET(part name, or the URI when external) MODE
//   core PROPERTY VALUE (present ones; dates as UTC instants) | thumbnail TARGET
// Exit status 0 when POI opened the package without complaint, 1 (with the exception) otherwise.
import java.net.URLEncoder;
import java.nio.charset.StandardCharsets;
import org.apache.poi.openxml4j.opc.*;

public final class OpcCheck {
  private static void record(String kind, String... fields) {
    StringBuilder line = new StringBuilder(kind);
    for (String f : fields) line.append('\t').append(URLEncoder.encode(f, StandardCharsets.UTF_8));
    System.out.println(line);
  }

  private static void relationships(String source, PackageRelationshipCollection rels) throws Exception {
    for (PackageRelationship rel : rels) {
      boolean external = rel.getTargetMode() == TargetMode.EXTERNAL;
      String target = external ? rel.getTargetURI().toString() : resolved(rel);
      record("rel", source, rel.getId(), rel.getRelationshipType(), target, external ? "External" : "Internal");
    }
  }

  private static String resolved(PackageRelationship rel) throws Exception {
    return PackagingURIHelper.resolvePartUri(rel.getSourceURI(), rel.getTargetURI()).getPath();
  }

  public static void main(String[] args) throws Exception {
    OPCPackage pkg;
    try {
      pkg = OPCPackage.open(args[0], PackageAccess.READ);
    } catch (Exception e) {
      System.err.println("POI refused the package: " + e);
      System.exit(1);
      return;
    }
    try {
      for (PackagePart part : pkg.getParts()) {
        if (part.isRelationshipPart()) continue;
        record("part", part.getPartName().getURI().getPath(), part.getContentType());
        relationships(part.getPartName().getURI().getPath(), part.getRelationships());
      }
      relationships("/", pkg.getRelationships());
      PackageProperties core = pkg.getPackageProperties();
      core.getTitleProperty().ifPresent(v -> record("core", "title", v));
      core.getDescriptionProperty().ifPresent(v -> record("core", "description", v));
      core.getCreatorProperty().ifPresent(v -> record("core", "creator", v));
      core.getVersionProperty().ifPresent(v -> record("core", "version", v));
      core.getCreatedProperty().ifPresent(v -> record("core", "created", v.toInstant().toString()));
      core.getModifiedProperty().ifPresent(v -> record("core", "modified", v.toInstant().toString()));
      for (PackageRelationship rel : pkg.getRelationshipsByType(PackageRelationshipTypes.THUMBNAIL)) {
        record("thumbnail", resolved(rel));
      }
    } finally {
      pkg.revert();
    }
  }
}
