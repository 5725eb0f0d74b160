// SPDX-License-Identifier: Apache-2.0

import com.android.apksig.ApkVerifier;
import java.io.BufferedReader;
import java.io.File;
import java.io.InputStreamReader;
import java.util.ArrayList;
import java.util.List;

/**
 * Judges many packages as "apksigner verify --min-sdk-version 30 --max-sdk-version 30" judges one, in one Java
 * machine. Reads paths from standard input, a line for each, and prints a line for each: the first error that
 * apksigner would print, or nothing if the package verifies.
 *
 * <p>usage: java -cp /usr/share/java/apksig.jar Judge.java
 */
class Judge {
  private static final int SDK_LEVEL = 30;

  private static String firstError(File file) throws Exception {
    ApkVerifier.Result result =
        new ApkVerifier.Builder(file)
            .setMinCheckedPlatformVersion(SDK_LEVEL)
            .setMaxCheckedPlatformVersion(SDK_LEVEL)
            .build()
            .verify();
    if (result.isVerified()) {
      return "";
    }
    List<String> errors = new ArrayList<>();
    result.getErrors().forEach(error -> errors.add(error.toString()));
    for (ApkVerifier.Result.V1SchemeSignerInfo signer : result.getV1SchemeSigners()) {
      signer.getErrors().forEach(error -> errors.add("JAR signer " + signer.getName() + ": " + error));
    }
    for (ApkVerifier.Result.V2SchemeSignerInfo signer : result.getV2SchemeSigners()) {
      String name = "APK Signature Scheme v2 signer #" + (signer.getIndex() + 1);
      signer.getErrors().forEach(error -> errors.add(name + ": " + error));
    }
    for (ApkVerifier.Result.V3SchemeSignerInfo signer : result.getV3SchemeSigners()) {
      String name = "APK Signature Scheme v3 signer #" + (signer.getIndex() + 1);
      signer.getErrors().forEach(error -> errors.add(name + ": " + error));
    }
    return errors.isEmpty() ? "fails without a reason" : errors.get(0).replaceFirst("\\. Expected: .*", "");
  }

  public static void main(String[] args) throws Exception {
    BufferedReader paths = new BufferedReader(new InputStreamReader(System.in));
    for (String path = paths.readLine(); path != null; path = paths.readLine()) {
      String error;
      try {
        error = firstError(new File(path));
      } catch (Exception | StackOverflowError | OutOfMemoryError e) {
        error = e.getClass().getSimpleName() + ": " + e.getMessage();
      }
      System.out.println(error.replaceAll("[\\r\\n]+", " "));
    }
  }
}
